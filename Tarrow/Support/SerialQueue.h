#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace kelvo {

/// Hands `task` to `post` (a queue's async) and waits until it has run there.
void runAndWait(const std::function<void(std::function<void()>)>& post,
                const std::function<void()>& task);

/// A worker thread running submitted tasks one at a time, in submission order: the Linux
/// form of a serial dispatch queue. The label becomes the thread's name (the kernel keeps
/// its first 15 characters).
class SerialQueue {
public:
    explicit SerialQueue(std::string label);
    /// Runs every task already submitted, then joins the thread.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void async(std::function<void()> task);
    /// Runs `task` on the queue and waits for it; must not be called from the queue itself.
    void sync(const std::function<void()>& task);

    const std::string& label() const { return label_; }
    /// True on the queue's own thread.
    bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

    /// Linux keeps 15 characters of a thread name; a longer label keeps its last dotted part.
    static std::string threadName(const std::string& label);

private:
    void run();

    std::string label_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool stopping_ = false;
    bool waiting_ = false;
    std::thread thread_;
};

} // namespace kelvo
