#include "Support/ShortSchedulerSlice.h"

#include <gtest/gtest.h>

#include <future>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace kelvo {
namespace {

using namespace std::chrono_literals;

// Each case runs on a thread of its own, so the test process keeps its scheduling.
template <typename Body> auto onFreshThread(Body body) {
    return std::async(std::launch::async, body).get();
}

TEST(ShortSchedulerSlice, TimeSharedThreadGetsTheSliceKeepsItsNiceAndItsChildrenDoNot) {
    const auto defaultSlice = onFreshThread(currentSchedulerSlice);
    const bool perThread = onFreshThread([&] {
        const auto self = static_cast<id_t>(::gettid());
        ::setpriority(PRIO_PROCESS, self, 5);
        EXPECT_EQ(requestShortSchedulerSlice(250us), SchedulerSliceResult::granted);
        EXPECT_EQ(::getpriority(PRIO_PROCESS, self), 5);
        const bool kept = currentSchedulerSlice() == 250us;
        if (kept) {
            EXPECT_EQ(onFreshThread(currentSchedulerSlice), defaultSlice);
        }
        return kept;
    });
    onFreshThread([] { // a thread under another policy is left alone
        const sched_param none{};
        ::sched_setscheduler(0, SCHED_BATCH, &none);
        EXPECT_EQ(requestShortSchedulerSlice(250us), SchedulerSliceResult::notTimeShared);
        EXPECT_EQ(::sched_getscheduler(0), SCHED_BATCH);
    });
    if (!perThread)
        GTEST_SKIP() << "this kernel keeps no slice per thread (before 6.12)";
}

} // namespace
} // namespace kelvo
