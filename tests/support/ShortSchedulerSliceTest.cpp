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

TEST(ShortSchedulerSlice, TheThreadGetsItsSliceKeepsItsNiceAndItsChildrenTheDefault) {
    const auto defaultSlice = onFreshThread(currentSchedulerSlice);
    const auto [result, slice, childSlice, nice] = onFreshThread([] {
        const auto self = static_cast<id_t>(::gettid());
        ::setpriority(PRIO_PROCESS, self, 5);
        const SchedulerSliceResult result = requestShortSchedulerSlice(250us);
        return std::tuple{result, currentSchedulerSlice(), onFreshThread(currentSchedulerSlice),
                          ::getpriority(PRIO_PROCESS, self)};
    });
    ASSERT_EQ(result, SchedulerSliceResult::granted);
    EXPECT_EQ(nice, 5);
    if (slice != 250us)
        GTEST_SKIP() << "this kernel keeps no slice per thread (before 6.12)";
    EXPECT_EQ(childSlice, defaultSlice);
}

TEST(ShortSchedulerSlice, AThreadUnderAnotherPolicyIsLeftAlone) {
    const auto [result, policy] = onFreshThread([] {
        const sched_param none{};
        ::sched_setscheduler(0, SCHED_BATCH, &none);
        return std::pair{requestShortSchedulerSlice(250us), ::sched_getscheduler(0)};
    });
    EXPECT_EQ(result, SchedulerSliceResult::notTimeShared);
    EXPECT_EQ(policy, SCHED_BATCH);
}

} // namespace
} // namespace kelvo
