#include "Support/ShortSchedulerSlice.h"

#include <cstdint>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kelvo {

namespace {

// The kernel's struct sched_attr (uapi/linux/sched/types.h), which glibc does not declare.
struct SchedulerAttributes {
    std::uint32_t size = sizeof(SchedulerAttributes);
    std::uint32_t policy = 0;
    std::uint64_t flags = 0;
    std::int32_t nice = 0;
    std::uint32_t priority = 0;
    std::uint64_t runtime = 0; // for time-shared threads: the requested slice, in ns
    std::uint64_t deadline = 0;
    std::uint64_t period = 0;
    std::uint32_t utilizationMinimum = 0;
    std::uint32_t utilizationMaximum = 0;
};

constexpr std::uint64_t resetOnFork = 0x01; // SCHED_FLAG_RESET_ON_FORK

bool readAttributes(SchedulerAttributes& attributes) {
    return ::syscall(SYS_sched_getattr, 0, &attributes, sizeof attributes, 0) == 0;
}

} // namespace

SchedulerSliceResult requestShortSchedulerSlice(std::chrono::microseconds slice) {
    SchedulerAttributes attributes;
    if (!readAttributes(attributes))
        return SchedulerSliceResult::refused;
    if (attributes.policy != SCHED_OTHER)
        return SchedulerSliceResult::notTimeShared;
    // Written back whole, so the nice value stays; the utilization clamps are left alone.
    // Threads started from this one get the default slices again, unless that would also take
    // away a raised priority they inherit.
    attributes.size = sizeof attributes;
    attributes.flags = attributes.nice >= 0 ? resetOnFork : 0;
    attributes.runtime = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(slice).count());
    if (::syscall(SYS_sched_setattr, 0, &attributes, 0) != 0)
        return SchedulerSliceResult::refused;
    return SchedulerSliceResult::granted;
}

std::chrono::microseconds currentSchedulerSlice() {
    SchedulerAttributes attributes;
    if (!readAttributes(attributes))
        return {};
    return std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::nanoseconds(attributes.runtime));
}

} // namespace kelvo
