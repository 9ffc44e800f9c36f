#pragma once

#include <pulse/pulseaudio.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace kelvo {

/// A client connection to the audio server on its own threaded main loop. Callbacks of
/// everything created on `context()` run on that loop's thread with the loop locked.
/// The server is libpulse's choice: $PULSE_SERVER, else the user's session server.
class PulseAudioConnection {
public:
    /// Set when the owner is going: every wait of a connection that shares it ends within
    /// `abandonPoll`, so nothing waits out a server that stopped answering.
    using AbandonFlag = std::shared_ptr<const std::atomic<bool>>;
    static constexpr std::chrono::milliseconds abandonPoll{100};
    static constexpr const char* abandonedReason = "quitting";

    /// Connects and waits until the context is ready. Throws `AudioInputException`.
    PulseAudioConnection(const std::string& clientName, const std::string& threadName,
                         std::chrono::milliseconds timeout = std::chrono::seconds(5),
                         AbandonFlag abandoned = {});
    ~PulseAudioConnection();
    PulseAudioConnection(const PulseAudioConnection&) = delete;
    PulseAudioConnection& operator=(const PulseAudioConnection&) = delete;

    pa_threaded_mainloop* mainloop() const { return mainloop_; }
    pa_context* context() const { return context_; }
    /// The text of the context's last error.
    std::string lastError() const;
    bool isConnected() const;
    bool isAbandoned() const { return abandoned_ && abandoned_->load(); }
    /// With the lock held: `lost` runs on the loop's thread (loop locked) when the context
    /// fails or ends, e.g. because the server went away. It must not destroy the connection.
    void setLostHandler(std::function<void()> lost) { lost_ = std::move(lost); }

    /// Holds the main loop's lock (recursive use from the loop thread is not allowed).
    class Lock {
    public:
        explicit Lock(const PulseAudioConnection& c) : loop_(c.mainloop_) {
            pa_threaded_mainloop_lock(loop_);
        }
        ~Lock() { pa_threaded_mainloop_unlock(loop_); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pa_threaded_mainloop* loop_;
    };

    static constexpr std::chrono::milliseconds replyTimeout{5000};

    /// With the lock held: waits for `operation` to finish (its callback must signal the
    /// loop) and releases it. Returns false when the operation could not be issued, the
    /// server did not answer in time (the operation is then cancelled) or the connection
    /// ended before it was done.
    bool await(pa_operation* operation, std::chrono::milliseconds timeout = replyTimeout) const;
    /// With the lock held: waits until `done()` or the timeout; returns `done()`. Anything
    /// that changes what `done` reads must signal the loop.
    template <typename Done> bool waitFor(Done done, std::chrono::milliseconds timeout) const {
        const pa_usec_t deadline = now() + static_cast<pa_usec_t>(timeout.count()) * 1000;
        pa_time_event* timer = armWakeUp(nextWakeUp(deadline));
        while (!done() && now() < deadline && !isAbandoned()) {
            pa_threaded_mainloop_wait(mainloop_);
            rearm(timer, nextWakeUp(deadline));
        }
        disarm(timer);
        return done();
    }
    /// With the lock held: signals waiters; for use in callbacks.
    void signal() const { pa_threaded_mainloop_signal(mainloop_, 0); }

private:
    static pa_usec_t now();
    static void stateChanged(pa_context* context, void* userdata);
    pa_time_event* armWakeUp(pa_usec_t deadline) const;
    void rearm(pa_time_event* timer, pa_usec_t at) const;
    void disarm(pa_time_event* timer) const;
    /// The deadline, or sooner while an abandon flag is to be watched.
    pa_usec_t nextWakeUp(pa_usec_t deadline) const;

    std::function<void()> lost_;
    AbandonFlag abandoned_;

    pa_threaded_mainloop* mainloop_ = nullptr;
    pa_context* context_ = nullptr;
};

} // namespace kelvo
