#include "Support/CoalescingWorker.h"

#include <gtest/gtest.h>

#include <future>
#include <vector>

namespace kelvo {
namespace {

TEST(CoalescingWorker, AJobWaitingIsReplacedByTheNewestAndNothingRunsOutOfOrder) {
    std::vector<char> ran; // written on the worker only, read after flush
    std::promise<void> release;
    std::promise<void> started;
    CoalescingWorker worker("kelvo.test");
    worker.submit([&] {
        started.set_value();
        release.get_future().wait(); // a slow disk
        ran.push_back('a');
    });
    started.get_future().wait();
    worker.submit([&] { ran.push_back('b'); });
    worker.submit([&] { ran.push_back('c'); });
    release.set_value();
    worker.flush();
    EXPECT_EQ(ran, (std::vector<char>{'a', 'c'}));
}

} // namespace
} // namespace kelvo
