#include "DMX/EnttecFrameBuilder.h"
#include "DMX/EnttecSerialSender.h"
#include "DMX/PosixSerialPort.h"

#include "support/PseudoTerminal.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <numeric>
#include <sys/ioctl.h>
#include <termios.h>
#include <thread>

namespace kelvo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using test::PseudoTerminal;
using testing::ElementsAre;

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

// Byte transparency (no 0x0A → 0D 0A) and non-blocking writes are shown by the next test.
TEST(PosixSerialPortOnPty, OpensRawAndExclusiveWithoutFlowControl) {
    PseudoTerminal pty;
    PosixSerialPort port(pty.devicePath());
    port.open();
    termios settings{};
    ASSERT_EQ(::tcgetattr(port.fileDescriptor(), &settings), 0);
    EXPECT_EQ(::cfgetospeed(&settings), B57600);
    EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0u);
    EXPECT_EQ(settings.c_iflag & (ICRNL | IXON | IXOFF | ISTRIP), 0u);
    EXPECT_EQ(settings.c_cflag & (CSIZE | CRTSCTS), static_cast<tcflag_t>(CS8));
    int exclusive = 0;
    EXPECT_EQ(::ioctl(port.fileDescriptor(), TIOCGEXCL, &exclusive), 0);
    EXPECT_EQ(exclusive, 1);
}

TEST(PosixSerialPortOnPty, WidgetThatStopsDrainingNeverBlocksAndNeverGetsACutFrame) {
    // A hang guard, not a timing assert: a blocking write would never return.
    std::promise<void> finished;
    std::thread watchdog([done = finished.get_future()] {
        if (done.wait_for(60s) == std::future_status::timeout) {
            std::fprintf(stderr, "a write blocked on a widget that stopped draining\n");
            std::abort();
        }
    });
    PseudoTerminal widget;
    PosixSerialPort port(widget.devicePath());
    std::map<bool, int> outcomes;
    // ~500 kB, far beyond what the terminal buffers; frame i is all byte i (0x0A, 0x0D, 0x11 …)
    for (int i = 0; i < 1000; ++i)
        ++outcomes[port.write(EnttecFrameBuilder::buildSendDmxFrame(Bytes(512, std::uint8_t(i))))];
    finished.set_value();
    watchdog.join();
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
    const auto failure = [](auto action) -> std::string {
        try {
            action();
        } catch (const SerialPortError& error) {
            return error.what();
        }
        return "no failure";
    };
    EXPECT_EQ(failure([] { PosixSerialPort("/nonexistent/ttyUSB9").open(); }),
              "Failed to open serial port at /nonexistent/ttyUSB9");
    test::TemporaryDirectory folder;
    std::ofstream(folder / "file") << "x"; // opens, but is no terminal
    EXPECT_EQ(failure([&] { PosixSerialPort((folder / "file").string()).open(); }),
              "Failed to open serial port at " + (folder / "file").string());

    PseudoTerminal pty;
    PosixSerialPort port(pty.devicePath());
    port.open();
    pty.closeController(); // unplugged
    EXPECT_EQ(failure([&] {
                  (void)port.write(Bytes{1, 2, 3});
              }),
              "Failed to write to serial port at " + pty.devicePath());
}

TEST(CandidatePaths, FixedPathThenMacNamesThenMakerLinksThenTtyUSBThenTtyACMEachDeviceOnce) {
    test::TemporaryDirectory root;
    fs::create_directories(root / "dev");
    fs::create_directories(root / "by-id");
    for (const char* name : {"ttyACM0", "ttyUSB1", "cu.usbmodem14", "ttyUSB0", "cu.usbserial-A9",
                             "ttyS0", "cu.Bluetooth", "tty.usbserial-A9", "ttyUSB10", "null"})
        std::ofstream(root.path() / "dev" / name) << "";
    const auto link = [&](const std::string& name, const char* target) {
        fs::create_symlink(root.path() / "dev" / target, root.path() / "by-id" / name);
        return (root.path() / "by-id" / name).string();
    };
    const std::string ftdi = link("usb-FTDI_FT232R_USB_UART_A1-if00-port0", "ttyUSB1");
    const std::string enttec = link("usb-ENTTEC_DMX_USB_PRO_EN1-if00-port0", "ttyUSB0");
    link("usb-Arduino_Uno_85-if00", "ttyACM0");
    const auto dev = [&](const char* name) { return (root.path() / "dev" / name).string(); };

    EXPECT_THAT(EnttecSerialSender::defaultCandidatePaths(
                    {(root / "dev").string(), (root / "by-id").string()}),
                ElementsAre("/dev/cu.usbserial-EN419206", dev("cu.usbmodem14"),
                            dev("cu.usbserial-A9"), enttec, ftdi, dev("ttyUSB10"), dev("ttyACM0")));
    EXPECT_THAT(EnttecSerialSender::defaultCandidatePaths({"/nonexistent/dev", "/nonexistent/id"}),
                ElementsAre("/dev/cu.usbserial-EN419206"));
}

} // namespace
} // namespace kelvo
