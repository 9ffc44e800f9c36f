#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace kelvo {

/// One worker thread running posted tasks in order, named after the queue's dotted label.
class SerialWorkQueue {
public:
    explicit SerialWorkQueue(std::string label);
    /// Runs what is already posted, then joins the thread.
    ~SerialWorkQueue();
    SerialWorkQueue(const SerialWorkQueue&) = delete;
    SerialWorkQueue& operator=(const SerialWorkQueue&) = delete;

    void post(std::function<void()> task);
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
    std::thread thread_;
};

} // namespace kelvo
