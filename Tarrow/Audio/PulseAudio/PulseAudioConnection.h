#pragma once

#include <pulse/pulseaudio.h>

#include <chrono>
#include <memory>
#include <string>

namespace kelvo {

/// A client connection to the audio server on its own threaded main loop. Callbacks of
/// everything created on `context()` run on that loop's thread with the loop locked.
/// The server is libpulse's choice: $PULSE_SERVER, else the user's session server.
class PulseAudioConnection {
public:
    /// Connects and waits until the context is ready. Throws `AudioInputException`.
    PulseAudioConnection(const std::string& clientName, const std::string& threadName,
                         std::chrono::milliseconds timeout = std::chrono::seconds(5));
    ~PulseAudioConnection();
    PulseAudioConnection(const PulseAudioConnection&) = delete;
    PulseAudioConnection& operator=(const PulseAudioConnection&) = delete;

    pa_threaded_mainloop* mainloop() const { return mainloop_; }
    pa_context* context() const { return context_; }
    /// The text of the context's last error.
    std::string lastError() const;
    bool isConnected() const;

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

    /// With the lock held: waits for `operation` to finish (its callback must signal the
    /// loop) and releases it. Returns false when the operation could not be issued.
    bool await(pa_operation* operation) const;
    /// With the lock held: signals waiters; for use in callbacks.
    void signal() const { pa_threaded_mainloop_signal(mainloop_, 0); }

private:
    pa_threaded_mainloop* mainloop_ = nullptr;
    pa_context* context_ = nullptr;
};

} // namespace kelvo
