// Audio-to-light latency of the bridge's live path: an audio input delivering a click track in
// device-sized buffers at the pace a sound card would (each buffer handed over once its last
// sample has been "heard"), the real capture, hop chunking, engine loop at 60 Hz and fan-out, with
// a harness whose light simply follows the input level. Reports how long after each click's
// audio time the first ArtDmx showing it was handed to the transport.
//   audio_to_light_latency [SECONDS] [BUFFER_FRAMES]
#include "Engine/AppModel.h"

#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

using namespace kelvo;
using Clock = std::chrono::steady_clock;

namespace {

constexpr double rate = 48000;
constexpr double clickPeriod = 0.5;
constexpr int clickFrames = 240; // 5 ms

std::mutex timesMutex;
std::vector<Clock::time_point> clickTimes; // audio time of each click, written by the "device"

class ClickStream final : public AudioInputStream {
public:
    explicit ClickStream(int bufferFrames) : bufferFrames_(bufferFrames) {}
    ~ClickStream() override { stop(); }
    CaptureFormat format() const override { return {rate, 1}; }
    void start(RenderReceiver receiver, std::function<void()>) override {
        running_ = true;
        thread_ = std::thread([this, receiver] {
            std::vector<float> buffer(std::size_t(bufferFrames_), 0.0f);
            const auto start = Clock::now();
            std::uint64_t frame = 0;
            const auto period = std::uint64_t(clickPeriod * rate);
            while (running_) {
                for (int i = 0; i < bufferFrames_; ++i) {
                    const std::uint64_t f = frame + std::uint64_t(i);
                    const bool click = f % period < std::uint64_t(clickFrames) && f >= period;
                    buffer[std::size_t(i)] = click ? ((f & 1) ? 0.8f : -0.8f) : 0.0f;
                    if (click && f % period == 0) {
                        std::lock_guard lock(timesMutex);
                        clickTimes.push_back(
                            start + std::chrono::nanoseconds(std::int64_t(double(f) * 1e9 / rate)));
                    }
                }
                frame += std::uint64_t(bufferFrames_);
                // A device delivers a buffer when its last sample has been captured.
                std::this_thread::sleep_until(
                    start + std::chrono::nanoseconds(std::int64_t(double(frame) * 1e9 / rate)));
                const AudioBuffer list{1, buffer.data()};
                receiver(AudioBufferListView(&list, 1), std::uint32_t(bufferFrames_));
            }
        });
    }
    void stop() override {
        running_ = false;
        if (thread_.joinable())
            thread_.join();
    }
    bool isRunning() const override { return running_; }

private:
    int bufferFrames_;
    std::atomic<bool> running_{false};
    std::thread thread_;
};

class ClickBackend final : public AudioInputBackend {
public:
    explicit ClickBackend(int bufferFrames) : bufferFrames_(bufferFrames) {}
    std::unique_ptr<AudioInputStream> openStream(const std::optional<std::string>&) override {
        return std::make_unique<ClickStream>(bufferFrames_);
    }

private:
    int bufferFrames_;
};

// Times when channel 1 turned on, as handed to the transport.
class TimingTransport final : public UDPSending {
public:
    std::vector<Clock::time_point> onsets;
    int packets = 0;
    void send(std::span<const std::uint8_t> datagram, const std::string&, std::uint16_t) override {
        const bool on = datagram.size() > 18 && datagram[18] == 255;
        ++packets;
        if (on && !wasOn_)
            onsets.push_back(Clock::now());
        wasOn_ = on;
    }

private:
    bool wasOn_ = false;
};

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, std::size_t(p * double(values.size())))];
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const double seconds = argc > 1 ? std::atof(argv[1]) : 30;
    const int bufferFrames = argc > 2 ? std::atoi(argv[2]) : 256;

    char pattern[] = "/tmp/kelvo-latency-XXXXXX";
    const std::string dir = ::mkdtemp(pattern);
    auto cache = std::make_unique<OfflineShowCache>(
        std::make_unique<QSettings>(QString::fromStdString(dir + "/settings.ini"),
                                    QSettings::IniFormat),
        QUrl("https://cloud.example"), QString::fromStdString(dir + "/cache"));
    std::ifstream file(std::string(KELVO_BENCH_DATA_DIR) + "/harnesses/level_follower.js");
    std::stringstream harness;
    harness << file.rdbuf();
    cache->saveHarnessJS(QByteArray::fromStdString(harness.str()), "{}");
    cache->saveShowSnapshot("{}");

    auto transport = std::make_shared<TimingTransport>();
    AppModelEnvironment environment;
    environment.cache = std::move(cache);
    environment.audio.deviceLayer = std::make_shared<EmptyAudioDeviceLayer>();
    environment.audio.backend = std::make_shared<ClickBackend>(bufferFrames);
    environment.artnetTransport = transport;
    environment.enttec = EnttecSerialSender([](const std::string&) { return nullptr; },
                                            [] { return std::vector<std::string>{}; });
    AppModel model(std::move(environment));
    model.bootstrap();
    model.replaceRoutes({{1, UniverseRoute::Destination::artnet(0)}});
    model.setArtNetEnabled(true);
    QTimer::singleShot(std::chrono::milliseconds(std::int64_t(seconds * 1000)), &app,
                       &QCoreApplication::quit);
    app.exec();
    model.applicationWillTerminate();
    std::filesystem::remove_all(dir);

    std::vector<double> latencies;
    std::lock_guard lock(timesMutex);
    for (const auto& click : clickTimes) {
        const auto light =
            std::lower_bound(transport->onsets.begin(), transport->onsets.end(), click);
        if (light != transport->onsets.end() &&
            *light - click < std::chrono::milliseconds(int(clickPeriod * 1000 / 2)))
            latencies.push_back(std::chrono::duration<double, std::milli>(*light - click).count());
    }
    if (latencies.size() < clickTimes.size() / 2) {
        std::fprintf(stderr, "only %zu of %zu clicks reached the lights (%d packets)\n",
                     latencies.size(), clickTimes.size(), transport->packets);
        return 1;
    }
    std::printf("{\"clicks\":%zu,\"shown\":%zu,\"bufferFrames\":%d,\"p50Ms\":%.1f,\"p95Ms\":%.1f,"
                "\"maxMs\":%.1f}\n",
                clickTimes.size(), latencies.size(), bufferFrames, percentile(latencies, 0.5),
                percentile(latencies, 0.95), *std::max_element(latencies.begin(), latencies.end()));
    return 0;
}
