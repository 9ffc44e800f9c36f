#pragma once

#include <chrono>

namespace kelvo {

/// How a request for short scheduler slices ended.
enum class SchedulerSliceResult {
    granted,
    notTimeShared, ///< the thread runs under another policy (a real-time one set by the operator)
    refused,       ///< the kernel refused; the thread keeps its default slices
};

/// Asks the kernel to schedule the calling thread in short slices. On a busy machine a thread
/// that wakes with a short request is run at once instead of after the running task's slice
/// (several milliseconds), and needs no privilege. Kernels before 6.12 accept the request and
/// ignore it. The thread's nice value and policy are kept; only plain time-shared threads are
/// changed; threads it starts later keep the default slices.
SchedulerSliceResult requestShortSchedulerSlice(std::chrono::microseconds slice);

/// The slice the kernel reports for the calling thread; zero when it does not say.
std::chrono::microseconds currentSchedulerSlice();

} // namespace kelvo
