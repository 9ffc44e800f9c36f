#pragma once

#include "Audio/BandDecibelLevels.h"
#include "Audio/Capture/AudioInputStream.h"
#include "Audio/Capture/HopChunker.h"
#include "Audio/MicHop.h"
#include "Audio/Recording/AudioRecordingController.h"

#include <QObject>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// Owns the live audio input: starts a run on the chosen device, hands every buffer to the
/// WAV writer and the hop chunker on the audio thread, and queues finished hops on the main
/// thread for the engine loop. All state here is main-thread only.
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

    /// Replaces where capture comes from; takes effect at the next start.
    void setBackend(std::shared_ptr<AudioInputBackend> backend) { backend_ = std::move(backend); }

    const BandDecibelLevels& bandLevels() const { return bandLevels_; }
    std::vector<MicHop>& pendingHops() { return pendingHops_; }
    /// Moves the queued hops out, leaving the queue empty.
    std::vector<MicHop> takePendingHops() { return std::exchange(pendingHops_, {}); }
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
    void configurationChanged(const std::weak_ptr<void>& run);
    void setCapturing(bool capturing);
    void setBandLevels(const BandDecibelLevels& levels);

    std::shared_ptr<AudioInputBackend> backend_;
    AudioRecordingController* recording_;
    int recordingChannels_ = 1;
    BandDecibelLevels bandLevels_ = BandDecibelLevels::silent();
    std::vector<MicHop> pendingHops_;
    std::unique_ptr<AudioInputStream> stream_;
    std::shared_ptr<HopChunker> chunker_;
    // Identity of the current run; hops and notices of other runs are dropped.
    std::shared_ptr<void> run_;
    std::optional<std::string> activeDeviceUID_;
    double sampleRate_;
    bool isCapturing_ = false;
};

} // namespace kelvo
