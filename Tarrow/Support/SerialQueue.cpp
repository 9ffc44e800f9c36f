#include "Support/SerialQueue.h"

#include <pthread.h>

namespace kelvo {

namespace {
constexpr std::size_t threadNameLimit = 15;
}

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

void runAndWait(const std::function<void(std::function<void()>)>& post,
                const std::function<void()>& task) {
    std::mutex doneMutex;
    std::condition_variable doneSignal;
    bool done = false;
    post([&] {
        task();
        std::lock_guard lock(doneMutex);
        done = true;
        doneSignal.notify_one();
    });
    std::unique_lock lock(doneMutex);
    doneSignal.wait(lock, [&] { return done; });
}

void SerialQueue::sync(const std::function<void()>& task) {
    runAndWait([this](std::function<void()> posted) { async(std::move(posted)); }, task);
}

std::string SerialQueue::threadName(const std::string& label) {
    if (label.size() <= threadNameLimit)
        return label;
    const std::size_t dot = label.rfind('.');
    const std::string tail = dot == std::string::npos ? label : label.substr(dot + 1);
    return tail.substr(0, threadNameLimit);
}

void SerialQueue::run() {
    ::pthread_setname_np(::pthread_self(), threadName(label_).c_str());
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
        task = nullptr; // release captures outside the lock
        lock.lock();
    }
}

} // namespace kelvo
