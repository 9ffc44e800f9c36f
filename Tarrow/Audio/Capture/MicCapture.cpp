#include "Audio/Capture/MicCapture.h"

#include "Support/SerialQueue.h"

#include <QMetaObject>

#include <algorithm>

namespace kelvo {

namespace {

std::unique_ptr<BandEnergyExtractor> makeExtractor(double rate) {
    return std::make_unique<BandEnergyExtractor>(rate, 250, 4000, 16000);
}

} // namespace

/// One capture run: its stream and what its audio thread works on.
struct MicCapture::Run {
    std::unique_ptr<AudioInputStream> stream;
    std::shared_ptr<HopRing> hops;
    std::shared_ptr<HopChunker> chunker;
    double sampleRate = fallbackSampleRate;
    int recordingChannels = 1;
    std::optional<std::string> deviceUID;
};

/// What the set-up thread hands back: a run that started, or why none did.
struct MicCapture::PendingStart {
    std::uint64_t number = 0;
    std::optional<Run> run;
    std::string failure;
};

MicCapture::MicCapture(std::shared_ptr<AudioInputBackend> backend,
                       std::unique_ptr<BandEnergyExtractor> extractor, double sampleRate,
                       QObject* parent)
    : QObject(parent), backend_(std::move(backend)),
      recording_(new AudioRecordingController(nullptr, this)),
      chunker_(std::make_shared<HopChunker>(
          extractor ? std::move(extractor) : makeExtractor(sampleRate), sampleRate)),
      sampleRate_(sampleRate) {}

MicCapture::~MicCapture() {
    // Every stream must be silent before the chunkers and the writer go: the one under way on
    // the set-up thread (finished first), any outcome not yet taken, and the current one.
    {
        std::lock_guard lock(handoffMutex_);
        ++startNumber_;
    }
    if (backend_ && setup_)
        backend_->abandonWaits(); // quitting must not wait out a server that stopped answering
    setup_.reset();
    if (handoff_ && handoff_->run)
        handoff_->run->stream->stop();
    if (stream_)
        stream_->stop();
}

MicCapture::Run MicCapture::openRun(AudioInputBackend& backend,
                                    const std::optional<std::string>& deviceUID,
                                    std::optional<int> channelCount, AudioRecordingWriter& writer) {
    Run run;
    run.stream = backend.openStream(deviceUID);
    const CaptureFormat format = run.stream->format();
    run.sampleRate = format.sampleRate > 0 ? format.sampleRate : fallbackSampleRate;
    run.deviceUID = deviceUID;
    const std::optional<int> mixed =
        channelCount && *channelCount > 0 ? channelCount : std::nullopt;
    run.chunker =
        std::make_shared<HopChunker>(makeExtractor(run.sampleRate), run.sampleRate, mixed);
    run.recordingChannels =
        std::min(channelCount.value_or(format.channelCount), format.channelCount);
    run.hops = std::make_shared<HopRing>(run.sampleRate, HopChunker::hopFrames);

    AudioRecordingWriter* recorder = &writer;
    const auto channels = static_cast<std::uint32_t>(std::max(run.recordingChannels, 0));
    // The audio thread: nothing here allocates, locks or waits for another thread.
    RenderReceiver receiver = [recorder, channels, chunker = run.chunker,
                               hops = run.hops](AudioBufferListView list, std::uint32_t frames) {
        recorder->capture(list, frames, channels);
        chunker->pushMono(list, frames,
                          [&hops](const BandDecibelLevels& levels, std::span<const float> samples) {
                              hops->push(levels, samples);
                          });
    };
    // `this` outlives every notice: the destructor stops every stream first.
    auto changed = [this, weakRun = std::weak_ptr<HopRing>(run.hops)] {
        QMetaObject::invokeMethod(
            this, [this, weakRun] { configurationChanged(weakRun); }, Qt::QueuedConnection);
    };
    run.stream->start(std::move(receiver), std::move(changed));
    return run;
}

void MicCapture::start(const std::optional<std::string>& deviceUID,
                       std::optional<int> channelCount) {
    stop();
    if (!backend_)
        throw AudioInputException(noBackendText);
    if (!backend_->mayWaitForServer()) {
        install(openRun(*backend_, deviceUID, channelCount, recording_->writer()));
        return;
    }
    if (!setup_)
        setup_ = std::make_unique<SerialQueue>("kelvo.audio-setup");
    std::uint64_t number = 0;
    {
        std::lock_guard lock(handoffMutex_);
        number = ++startNumber_;
    }
    isStarting_ = true;
    setup_->async([this, number, backend = backend_, deviceUID, channelCount,
                   writer = &recording_->writer()] {
        auto outcome = std::make_unique<PendingStart>();
        outcome->number = number;
        {
            std::lock_guard lock(handoffMutex_);
            if (number != startNumber_)
                return; // stopped or replaced before it began
        }
        try {
            outcome->run = openRun(*backend, deviceUID, channelCount, *writer);
        } catch (const std::exception& error) {
            outcome->failure = error.what();
        }
        {
            std::lock_guard lock(handoffMutex_);
            if (number == startNumber_) {
                handoff_ = std::move(outcome);
                QMetaObject::invokeMethod(this, &MicCapture::finishStart, Qt::QueuedConnection);
                return;
            }
        }
        if (outcome->run)
            outcome->run->stream->stop();
    });
}

void MicCapture::finishStart() {
    std::unique_ptr<PendingStart> outcome;
    {
        std::lock_guard lock(handoffMutex_);
        outcome = std::move(handoff_);
        if (!outcome || outcome->number != startNumber_) {
            if (outcome && outcome->run)
                outcome->run->stream->stop();
            return;
        }
    }
    isStarting_ = false;
    // A stream that died before it got here sent its notice too early to be heard.
    if (outcome->run && !outcome->run->stream->isRunning()) {
        outcome->run->stream->stop();
        outcome->run.reset();
        outcome->failure = streamEndedText;
    }
    if (!outcome->run) {
        emit startFailed(QString::fromStdString(outcome->failure));
        return;
    }
    install(std::move(*outcome->run));
}

void MicCapture::install(Run run) {
    stream_ = std::move(run.stream);
    chunker_ = std::move(run.chunker);
    run_ = std::move(run.hops);
    sampleRate_ = run.sampleRate;
    recordingChannels_ = run.recordingChannels;
    activeDeviceUID_ = std::move(run.deviceUID);
    setCapturing(true);
}

void MicCapture::configurationChanged(const std::weak_ptr<HopRing>& run) {
    const auto current = run.lock();
    if (!current || current != run_ || !stream_ || stream_->isRunning())
        return;
    stop();
}

void MicCapture::stop() {
    std::unique_ptr<PendingStart> abandoned;
    {
        std::lock_guard lock(handoffMutex_);
        ++startNumber_;
        abandoned = std::move(handoff_);
    }
    if (abandoned && abandoned->run)
        abandoned->run->stream->stop();
    isStarting_ = false;
    if (stream_) {
        stream_->stop();
        stream_.reset();
    }
    run_.reset();
    recording_->stop(QString::fromUtf8(AudioRecordingController::captureStoppedText));
    activeDeviceUID_.reset();
    setCapturing(false);
    pendingHops_.clear();
    setBandLevels(BandDecibelLevels::silent());
}

void MicCapture::publish(std::vector<MicHop> hops) {
    if (hops.empty())
        return;
    setCapturing(true);
    const BandDecibelLevels newest = hops.back().levels;
    pendingHops_.insert(pendingHops_.end(), std::make_move_iterator(hops.begin()),
                        std::make_move_iterator(hops.end()));
    setBandLevels(newest);
}

void MicCapture::collectHops() {
    if (!run_)
        return;
    const std::size_t before = pendingHops_.size();
    droppedHops_ += run_->takeInto(pendingHops_);
    if (pendingHops_.size() > before)
        setBandLevels(pendingHops_.back().levels);
}

void MicCapture::setCapturing(bool capturing) {
    if (isCapturing_ == capturing)
        return;
    isCapturing_ = capturing;
    emit isCapturingChanged();
}

void MicCapture::setBandLevels(const BandDecibelLevels& levels) {
    if (bandLevels_ == levels)
        return;
    bandLevels_ = levels;
    emit bandLevelsChanged();
}

} // namespace kelvo
