#include "Audio/PulseAudio/PulseAudioInputStream.h"

#include "Audio/Capture/RecordedFragment.h"
#include "Audio/Devices/AudioInputDeviceConfigurator.h"

#include <algorithm>

namespace kelvo {

PulseAudioInputStream::PulseAudioInputStream(std::optional<std::string> sourceName,
                                             CaptureFormat format,
                                             PulseAudioConnection::AbandonFlag abandoned)
    : sourceName_(std::move(sourceName)), format_(format), abandoned_(std::move(abandoned)) {}

PulseAudioInputStream::~PulseAudioInputStream() {
    stop();
}

void PulseAudioInputStream::start(RenderReceiver receiver,
                                  std::function<void()> configurationChanged) {
    stop();
    if (format_.sampleRate < 1 || format_.channelCount < 1 ||
        format_.channelCount > static_cast<int>(PA_CHANNELS_MAX))
        throw AudioInputException("No audio input is available");
    connection_ = std::make_unique<PulseAudioConnection>(
        "Kelvo Bridge capture", "Kelvo.audio", PulseAudioConnection::replyTimeout, abandoned_);
    receiver_ = std::move(receiver);
    configurationChanged_ = std::move(configurationChanged);
    silence_.assign(std::size_t{fragmentFrames} * std::size_t(format_.channelCount), 0.0f);

    pa_sample_spec spec{};
    spec.format = PA_SAMPLE_FLOAT32LE;
    spec.rate = static_cast<std::uint32_t>(format_.sampleRate + 0.5);
    spec.channels = static_cast<std::uint8_t>(format_.channelCount);
    pa_channel_map map{};
    pa_channel_map_init_extend(&map, spec.channels, PA_CHANNEL_MAP_DEFAULT);
    const std::uint32_t frameBytes = static_cast<std::uint32_t>(pa_frame_size(&spec));

    std::string failure;
    int status = 0;
    {
        PulseAudioConnection::Lock lock(*connection_);
        stream_ = pa_stream_new(connection_->context(), "Kelvo Bridge input", &spec, &map);
        if (!stream_) {
            failure = connection_->lastError();
            status = pa_context_errno(connection_->context());
        } else {
            pa_stream_set_state_callback(stream_, &stateChanged, this);
            pa_stream_set_read_callback(stream_, &readable, this);
            pa_buffer_attr attr{};
            attr.maxlength = static_cast<std::uint32_t>(-1);
            attr.tlength = attr.prebuf = attr.minreq = static_cast<std::uint32_t>(-1);
            // Small fragments: a hop is never held back by the server's buffering.
            attr.fragsize = fragmentFrames * frameBytes;
            // Channel k of the stream is channel k of the source: no remapping by position
            // names and no remixing, so a mixer's channels reach the recording and the
            // analysis apart, as they left it.
            auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY |
                                                        PA_STREAM_NO_REMAP_CHANNELS |
                                                        PA_STREAM_NO_REMIX_CHANNELS);
            // A chosen device must not be swapped for another behind our back: when it goes,
            // the stream fails and capture stops, and the device rules choose again.
            if (sourceName_)
                flags = static_cast<pa_stream_flags_t>(flags | PA_STREAM_DONT_MOVE);
            if (pa_stream_connect_record(stream_, sourceName_ ? sourceName_->c_str() : nullptr,
                                         &attr, flags) < 0) {
                failure = connection_->lastError();
                status = pa_context_errno(connection_->context());
            } else {
                const bool settled = connection_->waitFor(
                    [this] {
                        const pa_stream_state_t state = pa_stream_get_state(stream_);
                        return state == PA_STREAM_READY || !PA_STREAM_IS_GOOD(state);
                    },
                    PulseAudioConnection::replyTimeout);
                if (!settled || pa_stream_get_state(stream_) != PA_STREAM_READY) {
                    failure = settled ? connection_->lastError() : "timed out";
                    status = settled ? pa_context_errno(connection_->context()) : PA_ERR_TIMEOUT;
                }
            }
            if (failure.empty())
                running_.store(true, std::memory_order_release);
        }
    }
    if (!failure.empty()) {
        stop();
        throw AudioInputDeviceException({AudioInputDeviceError::SetDeviceFailed{status}});
    }
}

void PulseAudioInputStream::stop() {
    if (!connection_)
        return;
    {
        PulseAudioConnection::Lock lock(*connection_);
        running_.store(false, std::memory_order_release);
        if (stream_) {
            pa_stream_set_read_callback(stream_, nullptr, nullptr);
            pa_stream_set_state_callback(stream_, nullptr, nullptr);
            pa_stream_disconnect(stream_);
            pa_stream_unref(stream_);
            stream_ = nullptr;
        }
    }
    connection_.reset();
    receiver_ = nullptr;
    configurationChanged_ = nullptr;
}

void PulseAudioInputStream::readable(pa_stream* stream, std::size_t, void* userdata) {
    auto* self = static_cast<PulseAudioInputStream*>(userdata);
    const auto channels = static_cast<std::uint32_t>(self->format_.channelCount);
    while (pa_stream_readable_size(stream) > 0) {
        const void* data = nullptr;
        std::size_t bytes = 0;
        if (pa_stream_peek(stream, &data, &bytes) < 0 || bytes == 0)
            return;
        deliverRecordedFragment(data, bytes, channels, self->silence_, self->receiver_);
        pa_stream_drop(stream);
    }
}

void PulseAudioInputStream::stateChanged(pa_stream* stream, void* userdata) {
    auto* self = static_cast<PulseAudioInputStream*>(userdata);
    const pa_stream_state_t state = pa_stream_get_state(stream);
    if (self->connection_)
        self->connection_->signal();
    if (!PA_STREAM_IS_GOOD(state) && self->running_.exchange(false, std::memory_order_acq_rel)) {
        if (self->configurationChanged_)
            self->configurationChanged_();
    }
}

} // namespace kelvo
