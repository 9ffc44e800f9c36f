#include "App/HeadlessBridge.h"
#include "App/BridgeStatusLine.h"
#include "App/OutputRelay.h"

#include "support/AppModelRig.h"
#include "support/QtEventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <future>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace kelvo {
namespace {

using D = UniverseRoute::Destination;
using testing::HasSubstr;

TEST(BridgeStatusLine, ExactTexts) {
    BridgeStatusSample busy;
    busy.seconds = 2.0;
    busy.ticks = 120;
    busy.beat = {124.0, 57, true, 0.9, 0.0};
    busy.dropStatus = "listening";
    busy.artnetPackets = 240;
    busy.artnetHealth = "Rack · 2 universes";
    busy.capturing = busy.recording = true;
    busy.statusMessage = "Couldn’t switch mode: offline";
    EXPECT_EQ(formatBridgeStatusLine(busy),
              "60.0 ticks/s · 124.0 BPM · beat 57 ● · drop listening · Art-Net 120/s (Rack · 2 "
              "universes) · Enttec 0/s · recording · Couldn’t switch mode: offline");
    busy.capturing = busy.recording = false;
    EXPECT_THAT(formatBridgeStatusLine(busy), testing::HasSubstr("Enttec 0/s · no audio input"));
}

/// A pipe whose reader has stopped: its buffer is full.
struct StalledPipe {
    StalledPipe() {
        EXPECT_EQ(::pipe(ends), 0);
        filled = std::size_t(::fcntl(ends[1], F_SETPIPE_SZ, 4096)); // the smallest it takes
        EXPECT_EQ(::write(ends[1], std::string(filled, 'x').data(), filled), ssize_t(filled));
    }
    ~StalledPipe() {
        ::close(ends[0]);
        ::close(ends[1]);
    }
    /// Everything that arrives until nothing has for half a second.
    std::string drain() {
        std::string text;
        char buffer[65536];
        for (pollfd readable{ends[0], POLLIN, 0}; ::poll(&readable, 1, 500) > 0;) {
            const ssize_t got = ::read(ends[0], buffer, sizeof buffer);
            if (got <= 0)
                break;
            text.append(buffer, std::size_t(got));
        }
        return text;
    }
    int ends[2] = {-1, -1};
    std::size_t filled = 0;
};

TEST(OutputRelay, AStalledReaderNeverBlocksTheWriterAndWholeLinesArriveOnceItReads) {
    StalledPipe pipe;
    const OutputRelay relay(pipe.ends[1]);
    // Without the relay the first write would wait for the reader for good: a watchdog, not a
    // clock, tells.
    auto writes = std::async(std::launch::async, [&] {
        int refused = 0;
        for (int i = 0; i < 2000; ++i) {
            char line[101];
            std::snprintf(line, sizeof line, "%04d %094d\n", i, 0);
            if (::write(pipe.ends[1], line, 100) != 100)
                ++refused;
        }
        return refused;
    });
    ASSERT_EQ(writes.wait_for(std::chrono::seconds(30)), std::future_status::ready)
        << "a write waited for the stalled reader";
    EXPECT_GT(writes.get(), 0) << "what does not fit is dropped";

    const std::string arrived = pipe.drain().substr(pipe.filled);
    ASSERT_FALSE(arrived.empty());
    int previous = -1;
    for (std::size_t at = 0; at < arrived.size(); at += 100) {
        ASSERT_EQ(arrived.substr(at + 99, 1), "\n") << "a line arrived cut at " << at;
        const int number = std::stoi(arrived.substr(at, 4));
        EXPECT_GT(number, previous) << "in order, none twice";
        previous = number;
    }
    ASSERT_EQ(::write(pipe.ends[1], "after\n", 6), 6);
    EXPECT_EQ(pipe.drain(), "after\n") << "the reader is back: lines go through again";
}

/// A venue machine with a USB interface and a built-in microphone, and a cached show; what the
/// bridge prints is kept in `printed()`.
class HeadlessBridgeTest : public testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override {
        test::qtApplication();
        devices->addInput("usb-a", "USB Interface", AudioClockTransport::usb);
        devices->addInput("mic", "Built-in Microphone", AudioClockTransport::builtIn);
        seedCache();
    }
    void TearDown() override {
        bridge.reset();
        std::fclose(out);
        std::free(text);
    }
    void start(const LaunchOptions& options, std::FILE* to = nullptr) {
        // The last launch ends first, as a process would: its settings reach the disk at quit.
        bridge.reset();
        bridge = std::make_unique<HeadlessBridge>(makeModel(devices), options, to ? to : out);
        bridge->start();
    }
    std::string printed() {
        std::fflush(out);
        return {text, size};
    }

    std::shared_ptr<test::FakeAudioDeviceLayer> devices =
        std::make_shared<test::FakeAudioDeviceLayer>();
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* out = ::open_memstream(&text, &size);
    std::unique_ptr<HeadlessBridge> bridge;
};

TEST_F(HeadlessBridgeTest, LaunchSettingsAreKeptAndInForceAtStart) {
    // A fresh machine given only a host keeps it (the dashboard saves switch and host together).
    LaunchOptions options;
    options.artnetHost = " 10.1.1.1 ";
    start(options);
    EXPECT_EQ(bridge->model().artnetHost(), "10.1.1.1");
    EXPECT_FALSE(bridge->model().artnetEnabled());

    backend->opened.clear();
    options = {};
    options.routes = std::vector<UniverseRoute>{{1, D::artnet(7)}, {2, D::unmapped()}};
    options.artnetEnabled = true;
    options.enttecEnabled = false;
    options.audioDeviceUID = "mic";
    start(options);
    EXPECT_EQ(bridge->model().routes(), *options.routes);
    EXPECT_EQ(bridge->model().artnetHost(), "10.1.1.1") << "kept from the last launch";
    EXPECT_FALSE(bridge->model().enttecEnabled());
    // Capture opened once, on the chosen input rather than the USB interface it would prefer.
    EXPECT_EQ(backend->opened, (std::vector<std::optional<std::string>>{"mic"}));
}

TEST_F(HeadlessBridgeTest, AnAbsentInputAndAnAutomaticRepairAreEachSaidOnce) {
    LaunchOptions options;
    options.audioDeviceUID = "gone";
    options.artnetEnabled = true;
    options.artnetHost = "10.0.0.5";
    start(options);
    EXPECT_THAT(printed(), HasSubstr("Audio input \"gone\" is not connected; using "));
    discovery->state.nodes = ArtNetNodeList({test::artnetNode("10.0.0.9", {0}, {0})});
    bridge->model().refreshArtNetHealth();
    bridge->model().refreshArtNetHealth();
    const std::string line = "Auto: Point Art-Net output at 10.0.0.9\n", all = printed();
    ASSERT_NE(all.find(line), std::string::npos) << all;
    EXPECT_EQ(all.find(line, all.find(line) + 1), std::string::npos) << all;
}

TEST_F(HeadlessBridgeTest, TheLaunchInputIsJudgedByTheAudioServersFirstListNotBeforeIt) {
    const auto listed = devices->records;
    devices->records.clear(); // the server has not answered yet
    LaunchOptions options;
    options.audioDeviceUID = "usb-a";
    start(options);
    devices->records = listed;
    devices->listener();
    ASSERT_TRUE(test::pumpUntil(
        [&] { return bridge->model().audioSelection().activeAudioDeviceUID() == "usb-a"; }));
    test::pumpFor(std::chrono::milliseconds(50));
    EXPECT_THAT(printed(), testing::Not(HasSubstr("is not connected")));
}

TEST_F(HeadlessBridgeTest, ALineTheOutputCannotTakeIsCountedAndTheNextLineSaysSo) {
    StalledPipe pipe;
    ::fcntl(pipe.ends[1], F_SETFL, O_NONBLOCK); // as the relay's own pipe is
    std::FILE* stalled = ::fdopen(::dup(pipe.ends[1]), "w");
    LaunchOptions options;
    options.audioDeviceUID = "absent";
    start(options, stalled);
    EXPECT_EQ(bridge->linesLost(), 1u) << "the absent input's line did not fit";
    ASSERT_EQ(pipe.drain().size(), pipe.filled) << "nothing half written";
    std::string printed;
    ASSERT_TRUE(test::pumpUntil([&] { return !(printed += pipe.drain()).empty(); },
                                std::chrono::seconds(5)));
    EXPECT_THAT(printed,
                testing::StartsWith("(lines not shown while the output was not being read: 1)\n"));
    EXPECT_THAT(printed, testing::HasSubstr("ticks/s")) << "then the status line";
    EXPECT_EQ(bridge->linesLost(), 0u);
    bridge.reset();
    std::fclose(stalled);
}

} // namespace
} // namespace kelvo
