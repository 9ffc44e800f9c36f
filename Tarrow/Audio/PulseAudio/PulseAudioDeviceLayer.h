#pragma once

#include "Audio/Capture/AudioInputStream.h"
#include "Audio/Devices/AudioDeviceLayer.h"
#include "Audio/PulseAudio/PulseAudioConnection.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace kelvo {

/// The device layer over the PulseAudio (or PipeWire-Pulse) server. Sources are inputs
/// ("source:" + name), sinks are outputs ("sink:" + name); a sink's monitor source has no
/// input channels. UID = the source's name, name = its description, transport from
/// "device.bus" and "device.form_factor".
///
/// The server cannot be told to run a device at another rate: it resamples every stream
/// itself. Writing a nominal rate therefore records the rate that capture opens its stream
/// at, and reading it back returns that rate; no range list is reported, so the clock rules
/// never fail on this platform.
///
/// The server may be absent at start-up, restart or stop answering. A listing that fails
/// returns the previous list (a server that is away has not unplugged anything); a failed
/// query or the connection's failure hands the connection to a background thread, which
/// builds a new one (every `retryInterval`, each attempt bounded) and then tells the change
/// listener, so the device list is read again from the new connection.
class PulseAudioDeviceLayer : public AudioDeviceLayer {
public:
    static constexpr std::chrono::milliseconds retryInterval{2000};

    static constexpr const char* connectingText = "Audio server unavailable (connecting)";

    /// Returns at once and connects in the background. Never throws: until a server answers
    /// it lists nothing, says why in `unavailableReason`, and keeps trying.
    PulseAudioDeviceLayer();
    ~PulseAudioDeviceLayer() override;
    PulseAudioDeviceLayer(const PulseAudioDeviceLayer&) = delete;
    PulseAudioDeviceLayer& operator=(const PulseAudioDeviceLayer&) = delete;

    std::vector<AudioDeviceRecord> devices() override;
    std::optional<std::string> defaultInputDevice() override;
    std::optional<std::string> defaultOutputDevice() override;
    std::optional<double> nominalSampleRate(const std::string& id) override;
    int setNominalSampleRate(const std::string& id, double hz) override;
    std::vector<AudioSampleRateRange> availableSampleRates(const std::string& id) override;
    /// Always true: changes are delivered now, or once the server is reached again.
    bool setChangeListener(std::function<void()> listener) override;
    bool mayWaitForServer() const override { return true; }

    /// Why the server cannot be reached ("Audio server unavailable (…)"); absent while
    /// connected.
    std::optional<std::string> unavailableReason() const;
    /// Without a connection, waits for an attempt under way, then tries once (at most
    /// `quickAttempt`); then as `unavailableReason`. Never on the main thread.
    std::optional<std::string> connectNow();
    /// The owner is going: every wait on the server, now and later, gives up at once.
    void abandonWaits();
    PulseAudioConnection::AbandonFlag abandonFlag() const { return abandoned_; }
    static constexpr std::chrono::milliseconds quickAttempt{1000};

    /// A source's own format, and whether it is a sink's monitor (playback fed back in).
    struct SourceFormat {
        CaptureFormat format;
        bool isMonitor = false;
    };
    /// The format a record stream on this source (absent: the default source) delivers
    /// without conversion: the input's own format.
    std::optional<SourceFormat> sourceFormat(const std::optional<std::string>& sourceName);

    /// The transport a source or sink with these properties counts as.
    static AudioClockTransport transportFromProperties(const char* bus, const char* formFactor);
    static std::string sourceID(const std::string& name) { return "source:" + name; }
    static std::string sinkID(const std::string& name) { return "sink:" + name; }
    /// The server's name of a device id, and whether it is a source.
    static std::optional<std::pair<std::string, bool>> parseID(const std::string& id);

private:
    struct DefaultNames {
        std::optional<std::string> source;
        std::optional<std::string> sink;
    };
    /// The server's default source and sink names; none without an answer.
    DefaultNames defaultNames();
    static void subscriptionEvent(pa_context*, pa_subscription_event_type_t, uint32_t, void*);
    /// The working connection, or null while there is none.
    std::shared_ptr<PulseAudioConnection> current() const;
    /// Runs `queries(connection)` on the working connection with its loop locked; they issue
    /// operations and `await` them. Without a connection it is false; a false answer marks the
    /// connection lost, so the background thread replaces it.
    template <typename Queries> bool withConnection(Queries queries) {
        const std::shared_ptr<PulseAudioConnection> connection = current();
        if (!connection)
            return false;
        bool answered = false;
        {
            PulseAudioConnection::Lock lock(*connection);
            answered = queries(std::as_const(*connection));
        }
        if (!answered)
            lost(connection.get());
        return answered;
    }
    /// Marks `connection` as failed (if it is still the current one) for the retry thread.
    void lost(const PulseAudioConnection* connection);
    enum class Attempt { alreadyConnected, connected, failed };
    /// Replaces a missing or failed connection. The caller holds `connectMutex_` and, after
    /// releasing it, tells the listener when a new connection was made.
    Attempt tryConnectHoldingAttempt(std::chrono::milliseconds timeout);
    /// One attempt under `connectMutex_`, then the listener told of a new connection.
    void tryConnect(std::chrono::milliseconds timeout);
    void retryLoop();
    void notifyListener();

    // Lock order: a connection's loop lock, then `stateMutex_`; never the other way round,
    // and a connection is never destroyed on its own loop's thread.
    mutable std::mutex stateMutex_;
    std::condition_variable wake_;
    std::shared_ptr<PulseAudioConnection> connection_;
    bool broken_ = false;
    bool stopping_ = false;
    std::string failure_;
    std::vector<AudioDeviceRecord> lastDevices_;
    std::mutex connectMutex_; // one connection attempt at a time

    std::mutex overridesMutex_;
    std::map<std::string, double> rateOverrides_;
    std::mutex listenerMutex_;
    std::function<void()> listener_;
    const std::shared_ptr<std::atomic<bool>> abandoned_ = std::make_shared<std::atomic<bool>>();
    std::thread retry_;
};

} // namespace kelvo
