#include "Audio/Support/SerialQueue.h"

#include <pthread.h>

namespace kelvo {

SerialQueue::SerialQueue(std::string label) : label_(std::move(label)) {
    thread_ = std::thread([this] { run(); });
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void SerialQueue::async(std::function<void()> task) {
    bool wake;
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        wake = waiting_;
    }
    // A busy worker finds the task on its own; only a sleeping one needs the (costly) wake.
    if (wake)
        wake_.notify_one();
}

void SerialQueue::sync(const std::function<void()>& task) {
    std::mutex doneMutex;
    std::condition_variable doneSignal;
    bool done = false;
    async([&] {
        task();
        std::lock_guard lock(doneMutex);
        done = true;
        doneSignal.notify_one();
    });
    std::unique_lock lock(doneMutex);
    doneSignal.wait(lock, [&] { return done; });
}

void SerialQueue::run() {
    ::pthread_setname_np(::pthread_self(), label_.substr(0, 15).c_str());
    std::unique_lock lock(mutex_);
    for (;;) {
        waiting_ = true;
        wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
        waiting_ = false;
        if (tasks_.empty())
            return;
        std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}

} // namespace kelvo
