#include "Audio/PulseAudio/PulseAudioConnection.h"

#include "Audio/Capture/AudioInputStream.h"

namespace kelvo {

namespace {

void contextStateChanged(pa_context*, void* userdata) {
    pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(userdata), 0);
}

} // namespace

PulseAudioConnection::PulseAudioConnection(const std::string& clientName,
                                           const std::string& threadName,
                                           std::chrono::milliseconds timeout) {
    mainloop_ = pa_threaded_mainloop_new();
    if (!mainloop_)
        throw AudioInputException("Audio server unavailable (out of memory)");
    pa_threaded_mainloop_set_name(mainloop_, threadName.c_str());
    context_ = pa_context_new(pa_threaded_mainloop_get_api(mainloop_), clientName.c_str());
    if (!context_) {
        pa_threaded_mainloop_free(mainloop_);
        throw AudioInputException("Audio server unavailable (out of memory)");
    }
    pa_context_set_state_callback(context_, &contextStateChanged, mainloop_);
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
            const auto deadline = std::chrono::steady_clock::now() + timeout;
            for (;;) {
                const pa_context_state_t state = pa_context_get_state(context_);
                if (state == PA_CONTEXT_READY)
                    break;
                if (!PA_CONTEXT_IS_GOOD(state)) {
                    failure = lastError();
                    break;
                }
                if (std::chrono::steady_clock::now() > deadline) {
                    failure = "timed out";
                    break;
                }
                // Woken by every state change; a local socket answers or fails promptly.
                pa_threaded_mainloop_wait(mainloop_);
            }
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

bool PulseAudioConnection::await(pa_operation* operation) const {
    if (!operation)
        return false;
    while (pa_operation_get_state(operation) == PA_OPERATION_RUNNING)
        pa_threaded_mainloop_wait(mainloop_);
    pa_operation_unref(operation);
    return true;
}

} // namespace kelvo
