#include "DMX/SerialWorkQueue.h"

#include <pthread.h>

namespace kelvo {

namespace {
constexpr std::size_t threadNameLimit = 15;
}

SerialWorkQueue::SerialWorkQueue(std::string label)
    : label_(std::move(label)), thread_([this] { run(); }) {}

SerialWorkQueue::~SerialWorkQueue() {
    {
        std::lock_guard guard(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void SerialWorkQueue::post(std::function<void()> task) {
    {
        std::lock_guard guard(mutex_);
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
}

std::string SerialWorkQueue::threadName(const std::string& label) {
    if (label.size() <= threadNameLimit)
        return label;
    const std::size_t dot = label.rfind('.');
    const std::string tail = dot == std::string::npos ? label : label.substr(dot + 1);
    return tail.substr(0, threadNameLimit);
}

void SerialWorkQueue::run() {
    ::pthread_setname_np(::pthread_self(), threadName(label_).c_str());
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
        if (tasks_.empty())
            return; // stopping, and nothing left to run
        std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        task = nullptr; // release captures outside the lock
        lock.lock();
    }
}

} // namespace kelvo
