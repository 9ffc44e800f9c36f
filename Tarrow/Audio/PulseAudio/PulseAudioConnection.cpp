#include "Audio/PulseAudio/PulseAudioConnection.h"

#include "Audio/Capture/AudioInputStream.h"

#include <pulse/rtclock.h>

#include <algorithm>

namespace kelvo {

namespace {

void wakeUp(pa_mainloop_api*, pa_time_event*, const struct timeval*, void* userdata) {
    pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(userdata), 0);
}

} // namespace

void PulseAudioConnection::stateChanged(pa_context* context, void* userdata) {
    auto* self = static_cast<PulseAudioConnection*>(userdata);
    self->signal();
    const pa_context_state_t state = pa_context_get_state(context);
    if ((state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED) && self->lost_)
        self->lost_();
}

pa_usec_t PulseAudioConnection::now() {
    return pa_rtclock_now();
}

pa_time_event* PulseAudioConnection::armWakeUp(pa_usec_t deadline) const {
    return pa_context_rttime_new(context_, deadline, &wakeUp, mainloop_);
}

void PulseAudioConnection::rearm(pa_time_event* timer, pa_usec_t at) const {
    if (timer)
        pa_context_rttime_restart(context_, timer, at);
}

pa_usec_t PulseAudioConnection::nextWakeUp(pa_usec_t deadline) const {
    if (!abandoned_)
        return deadline;
    return std::min(deadline, now() + static_cast<pa_usec_t>(abandonPoll.count()) * 1000);
}

void PulseAudioConnection::disarm(pa_time_event* timer) const {
    if (timer)
        pa_threaded_mainloop_get_api(mainloop_)->time_free(timer);
}

PulseAudioConnection::PulseAudioConnection(const std::string& clientName,
                                           const std::string& threadName,
                                           std::chrono::milliseconds timeout, AbandonFlag abandoned)
    : abandoned_(std::move(abandoned)) {
    mainloop_ = pa_threaded_mainloop_new();
    if (!mainloop_)
        throw AudioInputException("Audio server unavailable (out of memory)");
    pa_threaded_mainloop_set_name(mainloop_, threadName.c_str());
    context_ = pa_context_new(pa_threaded_mainloop_get_api(mainloop_), clientName.c_str());
    if (!context_) {
        pa_threaded_mainloop_free(mainloop_);
        throw AudioInputException("Audio server unavailable (out of memory)");
    }
    pa_context_set_state_callback(context_, &PulseAudioConnection::stateChanged, this);
    if (pa_threaded_mainloop_start(mainloop_) < 0) {
        pa_context_unref(context_);
        pa_threaded_mainloop_free(mainloop_);
        throw AudioInputException("Audio server unavailable (cannot start its thread)");
    }

    std::string failure;
    {
        Lock lock(*this);
        if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
            failure = lastError();
        } else {
            const bool settled = waitFor(
                [this] {
                    return !PA_CONTEXT_IS_GOOD(pa_context_get_state(context_)) ||
                           pa_context_get_state(context_) == PA_CONTEXT_READY;
                },
                timeout);
            if (!settled)
                failure = isAbandoned() ? abandonedReason : "timed out";
            else if (pa_context_get_state(context_) != PA_CONTEXT_READY)
                failure = lastError();
        }
    }
    if (!failure.empty()) {
        pa_threaded_mainloop_stop(mainloop_);
        pa_context_disconnect(context_);
        pa_context_unref(context_);
        pa_threaded_mainloop_free(mainloop_);
        throw AudioInputException("Audio server unavailable (" + failure + ")");
    }
}

PulseAudioConnection::~PulseAudioConnection() {
    {
        Lock lock(*this);
        pa_context_set_state_callback(context_, nullptr, nullptr);
        pa_context_set_subscribe_callback(context_, nullptr, nullptr);
        pa_context_disconnect(context_);
    }
    pa_threaded_mainloop_stop(mainloop_);
    pa_context_unref(context_);
    pa_threaded_mainloop_free(mainloop_);
}

std::string PulseAudioConnection::lastError() const {
    return pa_strerror(pa_context_errno(context_));
}

bool PulseAudioConnection::isConnected() const {
    return pa_context_get_state(context_) == PA_CONTEXT_READY;
}

bool PulseAudioConnection::await(pa_operation* operation, std::chrono::milliseconds timeout) const {
    if (!operation)
        return false;
    const bool finished = waitFor(
        [operation] { return pa_operation_get_state(operation) != PA_OPERATION_RUNNING; }, timeout);
    if (!finished)
        pa_operation_cancel(operation);
    // An operation cut short by the connection's end is cancelled, not done: its answer may
    // be partial.
    const bool done = finished && pa_operation_get_state(operation) == PA_OPERATION_DONE;
    pa_operation_unref(operation);
    return done;
}

} // namespace kelvo
