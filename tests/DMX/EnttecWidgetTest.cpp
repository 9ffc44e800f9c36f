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

namespace kelvo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace test;
using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;

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
        {{}, std::nullopt},
        {{0x7E, 0x03, 0x05, 0x00, 0x2C, 0x01, 9, 1, 40}, std::nullopt},       // cut short
        {{0x7E, 0x03, 0x04, 0x00, 0x2C, 0x01, 9, 1, 0xE7}, std::nullopt},     // too few bytes
        {{0x7E, 0x03, 0x05, 0x00, 0x2C, 0x01, 9, 1, 40, 0x00}, std::nullopt}, // no end byte
        {{0x7E, 0x05, 0x05, 0x00, 0x2C, 0x01, 9, 1, 40, 0xE7}, std::nullopt}, // other label
        {{0x7E, 0x03, 0xFF, 0xFF, 0xE7}, std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(EnttecReplyParser::findWidgetParameters(c.bytes), c.expected)
            << testing::PrintToString(c.bytes);
}

// Devices on pseudo-terminals, with the sysfs entries a USB serial adapter would have.
class WidgetIdentification : public testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(root.path() / "by-id");
        folders = {"/dev", (root.path() / "by-id").string(), (root.path() / "tty").string()};
    }
    void usb(const std::string& devicePath, const std::string& vendor, const std::string& product) {
        const fs::path usbDevice = root.path() / "devices" / fs::path(devicePath).filename();
        fs::create_directories(usbDevice / "1-1:1.0");
        std::ofstream(usbDevice / "idVendor") << vendor << "\n";
        std::ofstream(usbDevice / "idProduct") << product << "\n";
        const fs::path tty = root.path() / "tty" / fs::path(devicePath).filename();
        fs::create_directories(tty);
        fs::create_directory_symlink(usbDevice / "1-1:1.0", tty / "device");
    }
    std::string byID(const std::string& name, const std::string& target) {
        const fs::path link = root.path() / "by-id" / name;
        fs::create_symlink(target, link);
        return link.string();
    }

    test::TemporaryDirectory root;
    SerialDeviceFolders folders;
};

TEST_F(WidgetIdentification, OnlyEnttecLinksAndAnsweringFT232RDevicesAreWidgets) {
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
        {"Arduino", true, "2341", "0043", nullptr, WidgetVerdict::notWidget, false},
        {"no USB device", true, nullptr, nullptr, nullptr, WidgetVerdict::notWidget, false},
    };
    for (const auto& c : cases) {
        fs::remove_all(root / "tty"); // terminal numbers are reused
        fs::remove_all(root / "devices");
        SimulatedEnttecWidget device(c.answers);
        if (c.vendor)
            usb(device.devicePath(), c.vendor, c.product);
        const std::string path = c.link ? byID(c.link, device.devicePath()) : device.devicePath();
        PosixSerialPort port(path);
        EXPECT_EQ(identifyEnttecWidget(path, port, folders), c.expected) << c.name;
        EXPECT_EQ(port.fileDescriptor() >= 0, c.opened) << c.name << ": opened";
        EXPECT_EQ(device.parameterRequests(), c.opened ? 1 : 0) << c.name;
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
    EXPECT_THAT(bench.opened, ElementsAre("/dev/ttyUSB1"));
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
    EXPECT_EQ(bench.identified["/dev/ttyUSB0"], 1);
}

TEST_F(SenderScans, ProbesRunOffTheCallersThreadAndDisconnectDiscardsAWidgetFoundLate) {
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<int> probes = 0;
    bench.plugged = {"/dev/ttyUSB0"};
    EnttecScanning scanning = fakeScanning(bench, {});
    scanning.identify = [&, released](const std::string&, SerialPortWriting&) {
        ++probes;
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
    EXPECT_EQ(probes, 1) << "the verdict outlives the switch-off";
}

} // namespace
} // namespace kelvo
