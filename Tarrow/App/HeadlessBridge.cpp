#include "App/HeadlessBridge.h"

#include "App/ApplicationInfo.h"
#include "DMX/NWUDPSocket.h"

namespace kelvo {

HeadlessBridge::HeadlessBridge(std::unique_ptr<AppModel> model, LaunchOptions options,
                               std::FILE* out, QObject* parent)
    : QObject(parent), model_(std::move(model)), options_(std::move(options)), out_(out) {
    statusTimer_.setTimerType(Qt::PreciseTimer);
    statusTimer_.setInterval(1000);
    connect(&statusTimer_, &QTimer::timeout, this, &HeadlessBridge::printStatus);
}

std::unique_ptr<AppModel> HeadlessBridge::makeModel(const LaunchOptions& options) {
    AppModelEnvironment environment;
    environment.cache = std::make_unique<OfflineShowCache>(OfflineShowCache::openUserSettings(),
                                                           QUrl(productionServerURL));
    std::optional<std::filesystem::path> audioFile;
    if (options.audioFile)
        audioFile = *options.audioFile;
    environment.audio = AudioInputPlatform::make(audioFile);
    environment.artnetTransport = std::make_shared<NWUDPSocket>();
    environment.serverURL = QString::fromStdString(options.serverURL.value_or(productionServerURL));
    return std::make_unique<AppModel>(std::move(environment));
}

void HeadlessBridge::persistLaunchSettings(AppModel& model, const LaunchOptions& options) {
    if (options.routes)
        model.replaceRoutes(*options.routes);
    if (options.artnetHost)
        model.setArtNetHost(QString::fromStdString(*options.artnetHost));
    if (options.artnetEnabled)
        model.setArtNetEnabled(*options.artnetEnabled);
    if (options.enttecEnabled)
        model.setEnttecEnabled(*options.enttecEnabled);
}

void HeadlessBridge::start() {
    // The model lists the devices when it is made: a device named on the command line is
    // chosen before start-up, so capture starts on it.
    if (options_.audioDeviceUID) {
        const auto& devices = model_->audioSelection().audioInputDevices();
        const bool listed = std::any_of(devices.begin(), devices.end(), [&](const auto& device) {
            return device.uid == *options_.audioDeviceUID;
        });
        if (listed)
            model_->audioSelection().selectAudioInputDevice(*options_.audioDeviceUID);
        else
            std::fprintf(out_, "Audio input \"%s\" is not connected; using %s.\n",
                         options_.audioDeviceUID->c_str(),
                         model_->audioSelection().audioInputDisplayName().c_str());
    }
    model_->bootstrap();
    persistLaunchSettings(*model_, options_);
    if (options_.recordOnStart)
        model_->toggleAudioRecording();
    if (!model_->engine().hasRealizedShow())
        std::fprintf(out_, "No cached show: the engine waits for a harness and a show (outputs "
                           "hold their last state).\n");
    std::fflush(out_);
    lastStatusTime_ = std::chrono::steady_clock::now();
    lastTicks_ = model_->tickCount();
    lastArtNetPackets_ = model_->dmxOutput().artnetPacketsSent();
    lastEnttecFrames_ = model_->dmxOutput().enttecFramesWritten();
    statusTimer_.start();
}

void HeadlessBridge::printStatus() {
    const auto now = std::chrono::steady_clock::now();
    BridgeStatusSample sample;
    sample.seconds = std::chrono::duration<double>(now - lastStatusTime_).count();
    sample.ticks = model_->tickCount() - lastTicks_;
    sample.beat = model_->beatReadout();
    sample.dropStatus = model_->isDropHeld() ? "held" : model_->engine().dropDiagnostics().status;
    sample.artnetPackets = model_->dmxOutput().artnetPacketsSent() - lastArtNetPackets_;
    sample.enttecFrames = model_->dmxOutput().enttecFramesWritten() - lastEnttecFrames_;
    sample.capturing = model_->mic().isCapturing();
    sample.recording = model_->mic().recording().isRecording();
    sample.statusMessage = model_->statusMessage().toStdString();
    lastStatusTime_ = now;
    lastTicks_ = model_->tickCount();
    lastArtNetPackets_ = model_->dmxOutput().artnetPacketsSent();
    lastEnttecFrames_ = model_->dmxOutput().enttecFramesWritten();
    std::fprintf(out_, "%s\n", formatBridgeStatusLine(sample).c_str());
    std::fflush(out_);
}

void HeadlessBridge::shutdown() {
    if (stopped_)
        return;
    stopped_ = true;
    statusTimer_.stop();
    model_->applicationWillTerminate();
    const auto& recording = model_->mic().recording();
    if (recording.message())
        std::fprintf(out_, "%s\n", recording.message()->toStdString().c_str());
    std::fflush(out_);
}

} // namespace kelvo
