#pragma once

#include "Audio/BandDecibelLevels.h"
#include "Audio/Capture/AudioInputStream.h"
#include "Audio/Capture/HopChunker.h"
#include "Audio/Capture/HopRing.h"
#include "Audio/MicHop.h"
#include "Audio/Recording/AudioRecordingController.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kelvo {

class SerialQueue;

/// Owns the live audio input: starts a run on the chosen device, hands every buffer to the
/// WAV writer and the hop chunker on the audio thread, and passes finished hops to the main
/// thread through the run's `HopRing`, where the engine loop takes them each tick. The audio
/// thread neither allocates nor locks.
///
/// A backend that may wait for an audio server is opened on the "kelvo.audio-setup" thread, so
/// the main thread never waits for it: `start` returns at once with `isStarting`, and the run
/// either begins (`isCapturingChanged`) or fails (`startFailed`). Other backends open at once.
/// All other state here is main-thread only.
class MicCapture : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isCapturing READ isCapturing NOTIFY isCapturingChanged)

public:
    static constexpr double fallbackSampleRate = 44100.0;
    static constexpr const char* noBackendText = "No audio input is available";
    static constexpr const char* streamEndedText = "The audio input stopped";

    MicCapture(std::shared_ptr<AudioInputBackend> backend,
               std::unique_ptr<BandEnergyExtractor> extractor = nullptr,
               double sampleRate = fallbackSampleRate, QObject* parent = nullptr);
    ~MicCapture() override;

    /// (Re)starts capture; absent `deviceUID` is the system default input, absent
    /// `channelCount` mixes and records all channels. Throws `AudioInputException` when a
    /// backend that opens at once fails; a failed start leaves capture stopped.
    void start(const std::optional<std::string>& deviceUID,
               std::optional<int> channelCount = std::nullopt);
    /// Ends the current run, or the start under way; safe when nothing runs.
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
    /// A start is under way on the set-up thread.
    bool isStarting() const { return isStarting_; }
    int recordingChannels() const { return recordingChannels_; }
    double sampleRate() const { return sampleRate_; }
    const std::optional<std::string>& activeDeviceUID() const { return activeDeviceUID_; }
    AudioRecordingController& recording() { return *recording_; }
    /// The chunker of the current run (or the initial one before any start).
    const HopChunker& chunker() const { return *chunker_; }

signals:
    void bandLevelsChanged();
    void isCapturingChanged();
    /// A start under way failed; `reason` is the operator-facing description.
    void startFailed(const QString& reason);

private:
    struct Run;
    struct PendingStart;

    /// Opens and starts a run; on the set-up thread for backends that may wait.
    Run openRun(AudioInputBackend& backend, const std::optional<std::string>& deviceUID,
                std::optional<int> channelCount, AudioRecordingWriter& writer);
    void install(Run run);
    /// Main thread: takes the outcome of the set-up thread's start.
    void finishStart();
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
    bool isStarting_ = false;

    // The start under way: its number, and its outcome once the set-up thread has one. A stop
    // or a newer start changes the number, which turns any outcome of the old one away.
    std::mutex handoffMutex_;
    std::uint64_t startNumber_ = 0;
    std::unique_ptr<PendingStart> handoff_;
    std::unique_ptr<SerialQueue> setup_;
};

} // namespace kelvo
