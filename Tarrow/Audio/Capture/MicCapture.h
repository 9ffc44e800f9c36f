#pragma once

#include "Audio/BandDecibelLevels.h"
#include "Audio/Capture/AudioInputStream.h"
#include "Audio/Capture/HopChunker.h"
#include "Audio/Capture/HopRing.h"
#include "Audio/MicHop.h"
#include "Audio/Recording/AudioRecordingController.h"

#include <QObject>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// Owns the live audio input: starts a run on the chosen device, hands every buffer to the
/// WAV writer and the hop chunker on the audio thread, and passes finished hops to the main
/// thread through the run's `HopRing`, where the engine loop takes them each tick. The audio
/// thread neither allocates nor locks. All other state here is main-thread only.
class MicCapture : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isCapturing READ isCapturing NOTIFY isCapturingChanged)

public:
    static constexpr double fallbackSampleRate = 44100.0;

    MicCapture(std::shared_ptr<AudioInputBackend> backend,
               std::unique_ptr<BandEnergyExtractor> extractor = nullptr,
               double sampleRate = fallbackSampleRate, QObject* parent = nullptr);
    ~MicCapture() override;

    /// (Re)starts capture; absent `deviceUID` is the system default input, absent
    /// `channelCount` mixes and records all channels. Throws `AudioInputException`; a failed
    /// start leaves capture stopped.
    void start(const std::optional<std::string>& deviceUID,
               std::optional<int> channelCount = std::nullopt);
    /// Ends the current run; safe when nothing runs.
    void stop();
    /// Appends hops to `pendingHops` and shows the newest levels.
    void publish(std::vector<MicHop> hops);
    /// Moves the hops the audio thread has queued since the last call into `pendingHops`.
    void collectHops();

    /// Replaces where capture comes from; takes effect at the next start.
    void setBackend(std::shared_ptr<AudioInputBackend> backend) { backend_ = std::move(backend); }

    const BandDecibelLevels& bandLevels() const { return bandLevels_; }
    /// The hops delivered and not yet taken, including those the audio thread just queued.
    std::vector<MicHop>& pendingHops() {
        collectHops();
        return pendingHops_;
    }
    /// Moves the queued hops out, leaving the queue empty.
    std::vector<MicHop> takePendingHops() {
        collectHops();
        return std::exchange(pendingHops_, {});
    }
    /// Hops lost because the main thread did not take them for longer than a ring holds.
    std::uint64_t droppedHops() const { return droppedHops_; }
    bool isCapturing() const { return isCapturing_; }
    int recordingChannels() const { return recordingChannels_; }
    double sampleRate() const { return sampleRate_; }
    const std::optional<std::string>& activeDeviceUID() const { return activeDeviceUID_; }
    AudioRecordingController& recording() { return *recording_; }
    /// The chunker of the current run (or the initial one before any start).
    const HopChunker& chunker() const { return *chunker_; }

signals:
    void bandLevelsChanged();
    void isCapturingChanged();

private:
    void configurationChanged(const std::weak_ptr<HopRing>& run);
    void setCapturing(bool capturing);
    void setBandLevels(const BandDecibelLevels& levels);

    std::shared_ptr<AudioInputBackend> backend_;
    AudioRecordingController* recording_;
    int recordingChannels_ = 1;
    BandDecibelLevels bandLevels_ = BandDecibelLevels::silent();
    std::vector<MicHop> pendingHops_;
    std::unique_ptr<AudioInputStream> stream_;
    std::shared_ptr<HopChunker> chunker_;
    // The current run's hops, and its identity: notices of other runs are dropped, and the
    // hops of a stopped or replaced run go with its ring.
    std::shared_ptr<HopRing> run_;
    std::uint64_t droppedHops_ = 0;
    std::optional<std::string> activeDeviceUID_;
    double sampleRate_;
    bool isCapturing_ = false;
};

} // namespace kelvo
