#include "DMX/EnttecFrameBuilder.h"
#include "DMX/EnttecReplyParser.h"
#include "DMX/EnttecSerialSender.h"
#include "DMX/EnttecWidgetIdentification.h"
#include "DMX/PosixSerialPort.h"

#include "OutputFakes.h"
#include "support/SimulatedEnttecWidget.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <numeric>
#include <thread>

namespace kelvo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using namespace test;

TEST(EnttecFrame, LayoutForEmptyShortAndOversizedInputAndTheParametersRequest) {
    EXPECT_THAT(EnttecFrameBuilder::buildSendDmxFrame(Bytes{}),
                ElementsAre(0x7E, 0x06, 0x01, 0x00, 0x00, 0xE7));
    EXPECT_THAT(EnttecFrameBuilder::buildSendDmxFrame(Bytes{10, 20, 30}),
                ElementsAre(0x7E, 0x06, 0x04, 0x00, 0x00, 10, 20, 30, 0xE7));
    Bytes channels(600);
    std::iota(channels.begin(), channels.end(), 0);
    const Bytes frame = EnttecFrameBuilder::buildSendDmxFrame(channels);
    ASSERT_EQ(frame.size(), 518u);
    EXPECT_THAT(Bytes(frame.begin(), frame.begin() + 5), ElementsAre(0x7E, 0x06, 0x01, 0x02, 0x00));
    EXPECT_EQ(Bytes(frame.begin() + 5, frame.end() - 1),
              Bytes(channels.begin(), channels.end() - 88));
    EXPECT_EQ(frame.back(), 0xE7);
    EXPECT_THAT(EnttecFrameBuilder::buildGetWidgetParametersRequest(),
                ElementsAre(0x7E, 0x03, 0x02, 0x00, 0x00, 0x00, 0xE7));
}

TEST(PosixSerialPortOnPty, WidgetThatStopsDrainingNeverBlocksAndNeverGetsACutFrame) {
    // A blocking write would hang here until the test times out.
    PseudoTerminal widget;
    PosixSerialPort port(widget.devicePath());
    std::map<bool, int> outcomes;
    // ~500 kB, far beyond what the terminal buffers; frame i is all byte i (0x0A, 0x0D, 0x11 …)
    for (int i = 0; i < 1000; ++i)
        ++outcomes[port.write(EnttecFrameBuilder::buildSendDmxFrame(Bytes(512, std::uint8_t(i))))];
    EXPECT_GT(outcomes[false], 0);

    // Once drained it takes frames again; what arrived is whole frames only (the one the
    // driver took in part was completed before any later frame).
    const Bytes last = {0x7E, 0x06, 0x01, 0x00, 0x00, 0xE7};
    Bytes stream;
    const auto drain = [&] {
        const Bytes chunk = widget.readSome();
        stream.insert(stream.end(), chunk.begin(), chunk.end());
        return !chunk.empty();
    };
    while (!port.write(last))
        ASSERT_TRUE(drain());
    while (stream.size() < last.size() || !std::equal(last.begin(), last.end(), stream.end() - 6))
        ASSERT_TRUE(drain());
    std::size_t frames = 0;
    for (std::size_t at = 0; at < stream.size(); ++frames) {
        ASSERT_EQ(stream[at], 0x7E) << "a cut frame at byte " << at;
        at += 4 + (stream[at + 2] | (stream[at + 3] << 8));
        ASSERT_EQ(stream[at++], 0xE7);
    }
    EXPECT_EQ(frames, std::size_t(outcomes[true]) + 1);
}

TEST(PosixSerialPortOnPty, FailuresCarryTheOperatorTexts) {
    const auto fails = [](const std::string& text) {
        return testing::ThrowsMessage<SerialPortError>(testing::StrEq(text));
    };
    EXPECT_THAT([] { PosixSerialPort("/nonexistent/ttyUSB9").open(); },
                fails("Failed to open serial port at /nonexistent/ttyUSB9"));
    PseudoTerminal pty;
    PosixSerialPort port(pty.devicePath());
    port.open();
    pty.closeController(); // unplugged
    const auto write = [&] { (void)port.write(Bytes{1, 2, 3}); };
    EXPECT_THAT(write, fails("Failed to write to serial port at " + pty.devicePath()));
}

TEST(EnttecReply, FindsTheFirstWellFormedParametersReplyInNoise) {
    const EnttecWidgetParameters answer{0x012C, 9, 1, 40};
    const struct {
        Bytes bytes;
        std::optional<EnttecWidgetParameters> expected;
    } cases[] = {
        {{0x7E, 0x03, 0x05, 0x00, 0x2C, 0x01, 9, 1, 40, 0xE7}, answer},
        {{0x00, 0x7E, 0x7E, 0x06, 0x01, 0x00, 0x00, 0xE7, // noise, then another label
          0x7E, 0x03, 0x07, 0x00, 0x2C, 0x01, 9,    1,    40, 0xAA, 0xBB, 0xE7}, // user bytes
         answer},
        {{0x7E, 0x03, 0x04, 0x00, 0x2C, 0x01, 9, 1, 0xE7}, std::nullopt},     // too few bytes
        {{0x7E, 0x03, 0x05, 0x00, 0x2C, 0x01, 9, 1, 40, 0x00}, std::nullopt}, // no end byte
        {{0x7E, 0x05, 0x05, 0x00, 0x2C, 0x01, 9, 1, 40, 0xE7}, std::nullopt}, // other label
    };
    for (const auto& c : cases)
        EXPECT_EQ(EnttecReplyParser::findWidgetParameters(c.bytes), c.expected)
            << testing::PrintToString(c.bytes);
}

// Devices on pseudo-terminals, with the sysfs entries a USB serial adapter would have.
TEST(WidgetIdentification, OnlyEnttecLinksAndAnsweringFT232RDevicesAreWidgets) {
    const struct {
        const char* name;
        bool answers;
        const char* vendor; // none: no USB device
        const char* product;
        const char* link;
        WidgetVerdict expected;
        bool opened;
    } cases[] = {
        {"ENTTEC link", false, nullptr, nullptr, "usb-ENTTEC_DMX_USB_PRO_EN1-if00-port0",
         WidgetVerdict::widget, false},
        {"FT232R that answers", true, "0403", "6001", nullptr, WidgetVerdict::widget, true},
        {"silent FT232R", false, "0403", "6001", nullptr, WidgetVerdict::notWidget, true},
        {"Open DMX link", false, "0403", "6001", "usb-ENTTEC_OPEN_DMX_USB-if00",
         WidgetVerdict::notWidget, true},
        {"other FTDI chip", true, "0403", "6015", nullptr, WidgetVerdict::notWidget, false},
    };
    test::TemporaryDirectory root;
    for (const auto& c : cases) {
        fs::remove_all(root.path()); // terminal numbers are reused
        fs::create_directories(root / "by-id");
        SimulatedEnttecWidget device(c.answers);
        const std::string name = fs::path(device.devicePath()).filename();
        if (c.vendor) {
            const fs::path usb = root / "devices" / name;
            fs::create_directories(usb / "1-1:1.0");
            std::ofstream(usb / "idVendor") << c.vendor << "\n";
            std::ofstream(usb / "idProduct") << c.product << "\n";
            fs::create_directories(root / "tty" / name);
            fs::create_directory_symlink(usb / "1-1:1.0", root / "tty" / name / "device");
        }
        const std::string path = c.link ? (root / "by-id" / c.link).string() : device.devicePath();
        if (c.link)
            fs::create_symlink(device.devicePath(), path);
        PosixSerialPort port(path);
        EXPECT_EQ(identifyEnttecWidget(path, port, {"/dev", root / "by-id", root / "tty"}),
                  c.expected)
            << c.name;
        EXPECT_EQ(port.fileDescriptor() >= 0, c.opened) << c.name << ": opened";
    }
}

class SenderScans : public testing::Test {
protected:
    EnttecSerialSender sender(std::vector<std::string> plugged) {
        bench.plugged = std::move(plugged);
        return EnttecSerialSender(fakeScanning(bench), clock);
    }
    SerialBench bench;
    std::shared_ptr<ManualMonotonicClock> clock = std::make_shared<ManualMonotonicClock>();
};

TEST_F(SenderScans, AtMostOnceASecondAndTheOpenWidgetIsKept) {
    EnttecSerialSender enttec = sender({"/dev/busy", "/dev/ttyUSB1", "/dev/ttyUSB2"});
    bench.unopenable = {"/dev/busy", "/dev/ttyUSB1", "/dev/ttyUSB2"};
    EXPECT_FALSE(enttec.sendDmx(Bytes{1}));
    clock->advance(999ms);
    EXPECT_FALSE(enttec.sendDmx(Bytes{1}));
    EXPECT_EQ(bench.scans, 1);

    clock->advance(1ms);
    bench.unopenable = {"/dev/busy"};
    ASSERT_TRUE(enttec.sendDmx(Bytes{1}));
    EXPECT_EQ(enttec.connectedPortPath(), "/dev/ttyUSB1") << "the first widget that opens";
    clock->advance(5s);
    ASSERT_TRUE(enttec.sendDmx(Bytes{2}));
    EXPECT_EQ(bench.scans, 2);
    EXPECT_TRUE(bench.closed.empty()) << "kept open";
}

TEST_F(SenderScans, VerdictsHoldUntilTheDeviceIsUnpluggedAndOthersAreNeverWritten) {
    EnttecSerialSender enttec = sender({"/dev/ttyACM0", "/dev/ttyUSB0"});
    bench.notWidgets = {"/dev/ttyACM0"};
    bench.failingWrites = {"/dev/ttyUSB0"};
    for (int frame = 0; frame < 3; ++frame, clock->advance(1s))
        EXPECT_FALSE(enttec.sendDmx(Bytes{1})); // the widget fails: dropped, found again
    EXPECT_EQ(enttec.status(), (EnttecOutputStatus{{}, 0, 0, 3, {"/dev/ttyACM0"}}));
    EXPECT_EQ(bench.identified["/dev/ttyACM0"], 1);
    EXPECT_EQ(bench.identified["/dev/ttyUSB0"], 1);
    EXPECT_FALSE(bench.frames.contains("/dev/ttyACM0"));

    bench.plugged = {"/dev/ttyUSB0"}; // unplugged …
    EXPECT_FALSE(enttec.sendDmx(Bytes{1}));
    clock->advance(1s);
    bench.plugged = {"/dev/ttyACM0", "/dev/ttyUSB0"}; // … and back: judged anew
    bench.failingWrites.clear();
    ASSERT_TRUE(enttec.sendDmx(Bytes{2}));
    EXPECT_EQ(bench.identified["/dev/ttyACM0"], 2);
}

TEST_F(SenderScans, AMakersLinkAddedAfterASilentProbeOfItsNodeIsJudgedByItsName) {
    test::TemporaryDirectory dev;
    const std::string node = dev / "ttyUSB0";
    const std::string link = dev / "usb-ENTTEC_DMX_USB_PRO_EN123456-if00-port0";
    std::ofstream{node};
    EnttecSerialSender enttec = sender({node});
    bench.notWidgets = {node}; // still booting: no answer to the probe
    EXPECT_FALSE(enttec.sendDmx(Bytes{1}));

    std::filesystem::create_symlink(node, link);
    bench.plugged = {link, node};
    clock->advance(1s);
    ASSERT_TRUE(enttec.sendDmx(Bytes{2}));
    EXPECT_EQ(enttec.connectedPortPath(), link);
}

TEST_F(SenderScans, ProbesRunOffTheCallersThreadAndDisconnectDiscardsAWidgetFoundLate) {
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    bench.plugged = {"/dev/ttyUSB0"};
    EnttecScanning scanning = fakeScanning(bench, {});
    scanning.identify = [released](const std::string&, SerialPortWriting&) {
        released.wait(); // a slow probe
        return WidgetVerdict::widget;
    };
    EnttecSerialSender enttec(std::move(scanning), clock);
    EXPECT_FALSE(enttec.sendDmx(Bytes{1})) << "returns while the probe waits";
    clock->advance(5s);
    EXPECT_FALSE(enttec.sendDmx(Bytes{1})) << "no second scan while one runs";
    enttec.disconnect(); // switched off mid-scan
    release.set_value();

    const auto eventually = [](auto predicate) {
        for (int i = 0; i < 1000; ++i, std::this_thread::sleep_for(10ms))
            if (predicate())
                return true;
        return false;
    };
    EXPECT_TRUE(eventually([&] {
        std::lock_guard guard(bench.lock);
        return bench.closed.size() == 1;
    })) << "the widget found after the switch-off is closed, not taken";
    EXPECT_FALSE(enttec.connectedPortPath());
    EXPECT_TRUE(eventually([&] { return enttec.sendDmx(Bytes{2}); })) << "found again";
    EXPECT_EQ(bench.scans, 2);
}

} // namespace
} // namespace kelvo
