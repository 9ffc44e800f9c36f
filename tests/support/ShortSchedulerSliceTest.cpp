#include "Support/ShortSchedulerSlice.h"

#include <gtest/gtest.h>

#include <future>
#include <sched.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace kelvo {
namespace {

using namespace std::chrono_literals;

/// Runs `body` on a thread of its own, so the test process keeps its scheduling.
template <typename Body> auto onFreshThread(Body body) {
    return std::async(std::launch::async, body).get();
}

int threadNice() {
    return ::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()));
}

TEST(ShortSchedulerSlice, TheThreadGetsItsSliceKeepsItsNiceAndItsChildrenTheDefault) {
    const std::chrono::microseconds defaultSlice = onFreshThread(currentSchedulerSlice);
    struct Seen {
        SchedulerSliceResult result;
        std::chrono::microseconds slice, childSlice;
        int nice;
    };
    const Seen seen = onFreshThread([] {
        ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), 5);
        const SchedulerSliceResult result = requestShortSchedulerSlice(250us);
        const auto childSlice = onFreshThread(currentSchedulerSlice);
        return Seen{result, currentSchedulerSlice(), childSlice, threadNice()};
    });
    ASSERT_EQ(seen.result, SchedulerSliceResult::granted);
    EXPECT_EQ(seen.nice, 5);
    if (seen.slice != 250us)
        GTEST_SKIP() << "this kernel keeps no slice per thread (before 6.12)";
    EXPECT_EQ(seen.childSlice, defaultSlice);
}

TEST(ShortSchedulerSlice, AThreadUnderAnotherPolicyIsLeftAlone) {
    const auto [result, policy] = onFreshThread([] {
        const sched_param none{};
        if (::sched_setscheduler(0, SCHED_BATCH, &none) != 0)
            return std::pair{SchedulerSliceResult::refused, -1};
        return std::pair{requestShortSchedulerSlice(250us), ::sched_getscheduler(0)};
    });
    EXPECT_EQ(result, SchedulerSliceResult::notTimeShared);
    EXPECT_EQ(policy, SCHED_BATCH);
}

} // namespace
} // namespace kelvo
