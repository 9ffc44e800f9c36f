#pragma once

#include "Support/SerialQueue.h"

#include <functional>
#include <mutex>
#include <string>

namespace kelvo {

/// A worker thread for writes that may come faster than the disk takes them (a blend fader
/// moved at 60 Hz): a job submitted while an earlier one still waits replaces it, so only the
/// newest state is written and the caller never waits on the disk. Whatever is pending when the
/// worker is destroyed is still written.
class CoalescingWorker {
public:
    explicit CoalescingWorker(std::string label) : queue_(std::move(label)) {}

    /// Runs `job` on the worker soon, in place of any job not yet started.
    void submit(std::function<void()> job);
    /// Waits until every submitted job has run (at quit, and before reading back).
    void flush();

private:
    void runPending();

    std::mutex mutex_;
    std::function<void()> pending_;
    bool scheduled_ = false;
    SerialQueue queue_; // last: joined, running what is pending, before the rest goes
};

} // namespace kelvo
