#include "Audio/Capture/MicCapture.h"

#include <QMetaObject>

#include <algorithm>

namespace kelvo {

namespace {

std::unique_ptr<BandEnergyExtractor> makeExtractor(double rate) {
    return std::make_unique<BandEnergyExtractor>(rate, 250, 4000, 16000);
}

} // namespace

MicCapture::MicCapture(std::shared_ptr<AudioInputBackend> backend,
                       std::unique_ptr<BandEnergyExtractor> extractor, double sampleRate,
                       QObject* parent)
    : QObject(parent), backend_(std::move(backend)),
      recording_(new AudioRecordingController(nullptr, this)),
      chunker_(std::make_shared<HopChunker>(
          extractor ? std::move(extractor) : makeExtractor(sampleRate), sampleRate)),
      sampleRate_(sampleRate) {}

MicCapture::~MicCapture() {
    // The stream must be silent before the chunker and the writer go.
    if (stream_)
        stream_->stop();
}

void MicCapture::start(const std::optional<std::string>& deviceUID,
                       std::optional<int> channelCount) {
    stop();
    if (!backend_)
        throw AudioInputException("No audio input is available");
    std::unique_ptr<AudioInputStream> stream = backend_->openStream(deviceUID);
    const CaptureFormat format = stream->format();
    const double rate = format.sampleRate > 0 ? format.sampleRate : fallbackSampleRate;
    sampleRate_ = rate;

    const std::optional<int> mixed =
        channelCount && *channelCount > 0 ? channelCount : std::nullopt;
    auto chunker = std::make_shared<HopChunker>(makeExtractor(rate), rate, mixed);
    chunker_ = chunker;
    recordingChannels_ = std::min(channelCount.value_or(format.channelCount), format.channelCount);

    auto run = std::make_shared<HopRing>(rate, HopChunker::hopFrames);
    std::weak_ptr<HopRing> weakRun = run;
    AudioRecordingWriter* writer = &recording_->writer();
    const auto channels = static_cast<std::uint32_t>(std::max(recordingChannels_, 0));
    // The audio thread: nothing here allocates, locks or waits for another thread.
    RenderReceiver receiver = [writer, channels, chunker, hops = run](AudioBufferListView list,
                                                                      std::uint32_t frames) {
        writer->capture(list, frames, channels);
        chunker->pushMono(list, frames,
                          [&hops](const BandDecibelLevels& levels, std::span<const float> samples) {
                              hops->push(levels, samples);
                          });
    };
    auto changed = [this, weakRun] {
        QMetaObject::invokeMethod(
            this, [this, weakRun] { configurationChanged(weakRun); }, Qt::QueuedConnection);
    };
    stream->start(std::move(receiver), std::move(changed));

    stream_ = std::move(stream);
    run_ = std::move(run);
    activeDeviceUID_ = deviceUID;
    setCapturing(true);
}

void MicCapture::configurationChanged(const std::weak_ptr<HopRing>& run) {
    const auto current = run.lock();
    if (!current || current != run_ || !stream_ || stream_->isRunning())
        return;
    stop();
}

void MicCapture::stop() {
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
