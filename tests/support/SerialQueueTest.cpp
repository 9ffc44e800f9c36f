#include "Support/SerialQueue.h"

#include <gtest/gtest.h>

#include <future>
#include <pthread.h>
#include <vector>

namespace kelvo {
namespace {

TEST(SerialQueue, ThreadCarriesTheLabelWithinTheSystemLimit) {
    EXPECT_EQ(SerialQueue::threadName("kelvo.bridge.artnet-udp"), "artnet-udp");
    EXPECT_EQ(SerialQueue::threadName("Kelvo.wav-writer"), "wav-writer");
    EXPECT_EQ(SerialQueue::threadName("short.name"), "short.name");
    SerialQueue queue("kelvo.bridge.artnet-udp");
    std::promise<std::string> name;
    queue.async([&] {
        char buffer[16] = {};
        ::pthread_getname_np(::pthread_self(), buffer, sizeof buffer);
        name.set_value(buffer);
    });
    EXPECT_EQ(name.get_future().get(), "artnet-udp");
}

TEST(SerialQueue, RunsTasksInOrderAndFinishesThemBeforeJoining) {
    std::vector<int> order;
    {
        SerialQueue queue("kelvo.test");
        for (int i = 0; i < 100; ++i)
            queue.async([&order, i] { order.push_back(i); });
        bool onQueue = false;
        queue.sync([&] { onQueue = queue.isCurrent(); });
        EXPECT_TRUE(onQueue);
        EXPECT_FALSE(queue.isCurrent());
        for (int i = 100; i < 200; ++i)
            queue.async([&order, i] { order.push_back(i); });
    }
    ASSERT_EQ(order.size(), 200u);
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(order[std::size_t(i)], i);
}

} // namespace
} // namespace kelvo
