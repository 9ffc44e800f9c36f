#include "DMX/EnttecFrameBuilder.h"
#include "DMX/EnttecSerialSender.h"
#include "DMX/PosixSerialPort.h"

#include "support/PseudoTerminal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <numeric>
#include <sys/ioctl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace kelvo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing_support::PseudoTerminal;

TEST(EnttecFrame, LayoutAndLengthForEmptyShortAndOversizedInput) {
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
              Bytes(channels.begin(), channels.begin() + 512));
    EXPECT_EQ(frame.back(), 0xE7);
    EXPECT_THAT(EnttecFrameBuilder::buildGetWidgetParametersRequest(),
                ElementsAre(0x7E, 0x03, 0x02, 0x00, 0x00, 0x00, 0xE7));
}

TEST(PosixSerialPortOnPty, OpensRawExclusiveNonBlockingWithoutFlowControl) {
    PseudoTerminal pty;
    PosixSerialPort port(pty.devicePath());
    EXPECT_EQ(port.fileDescriptor(), -1);
    port.open();
    const int fd = port.fileDescriptor();
    ASSERT_GE(fd, 0);

    termios settings{};
    ASSERT_EQ(::tcgetattr(fd, &settings), 0);
    EXPECT_EQ(::cfgetospeed(&settings), B57600);
    EXPECT_EQ(::cfgetispeed(&settings), B57600);
    EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0u);
    EXPECT_EQ(settings.c_oflag & OPOST, 0u); // 0x0A must not become 0D 0A
    EXPECT_EQ(settings.c_iflag & (ICRNL | IXON | IXOFF | ISTRIP), 0u);
    EXPECT_EQ(settings.c_cflag & (CSIZE | CRTSCTS), static_cast<tcflag_t>(CS8));
    EXPECT_NE(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    int exclusive = 0;
    ASSERT_EQ(::ioctl(fd, TIOCGEXCL, &exclusive), 0);
    EXPECT_EQ(exclusive, 1);

    Bytes channels(512);
    for (std::size_t i = 0; i < channels.size(); ++i)
        channels[i] = static_cast<std::uint8_t>(i * 7); // includes 0x0A, 0x0D, 0x11, 0x13, 0x7F
    const Bytes frame = EnttecFrameBuilder::buildSendDmxFrame(channels);
    ASSERT_TRUE(port.write(frame));
    ASSERT_TRUE(port.write(frame));
    EXPECT_EQ(pty.read(frame.size() * 2), [&] {
        Bytes twice = frame;
        twice.insert(twice.end(), frame.begin(), frame.end());
        return twice;
    }());
}

// Splits a byte stream into widget messages; fails on anything that is not a whole frame.
std::vector<Bytes> wholeFrames(const Bytes& stream) {
    std::vector<Bytes> frames;
    for (std::size_t at = 0; at < stream.size();) {
        if (stream.size() - at < 6 || stream[at] != 0x7E)
            return {};
        const std::size_t length = stream[at + 2] | (stream[at + 3] << 8);
        const std::size_t end = at + 4 + length;
        if (end >= stream.size() || stream[end] != 0xE7)
            return {};
        frames.emplace_back(stream.begin() + long(at), stream.begin() + long(end) + 1);
        at = end + 1;
    }
    return frames;
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
    for (int i = 0; i < 1000; ++i) // ~500 kB: far beyond what the terminal buffers
        ++outcomes[port.write(EnttecFrameBuilder::buildSendDmxFrame(Bytes(512, std::uint8_t(i))))];
    finished.set_value();
    watchdog.join();
    EXPECT_GT(outcomes[false], 0);
    EXPECT_GT(outcomes[true], 0);

    // Whatever got through is whole frames, the cut one completed before any later frame.
    const Bytes last = {0x7E, 0x06, 0x01, 0x00, 0x00, 0xE7};
    Bytes stream;
    const auto drain = [&] {
        const Bytes chunk = widget.readSome();
        stream.insert(stream.end(), chunk.begin(), chunk.end());
        return !chunk.empty();
    };
    while (!port.write(last)) // taken again once drained
        ASSERT_TRUE(drain());
    while (stream.size() < last.size() || !std::equal(last.begin(), last.end(), stream.end() - 6))
        ASSERT_TRUE(drain());
    const std::vector<Bytes> frames = wholeFrames(stream);
    EXPECT_EQ(frames.size(), std::size_t(outcomes[true]) + 1);
}

TEST(PosixSerialPortOnPty, FailuresCarryTheOperatorTexts) {
    PosixSerialPort missing("/nonexistent/ttyUSB9");
    try {
        missing.open();
        FAIL() << "opened a missing device";
    } catch (const SerialPortError& error) {
        EXPECT_EQ(error.kind(), SerialPortError::Kind::openFailed);
        EXPECT_STREQ(error.what(), "Failed to open serial port at /nonexistent/ttyUSB9");
    }

    // A regular file opens but is no terminal: not a serial port.
    const fs::path file =
        fs::temp_directory_path() / ("kelvo-not-a-tty-" + std::to_string(::getpid()));
    std::ofstream(file) << "x";
    PosixSerialPort notATerminal(file.string());
    EXPECT_THROW(notATerminal.open(), SerialPortError);
    EXPECT_EQ(notATerminal.fileDescriptor(), -1);
    fs::remove(file);

    PseudoTerminal pty;
    PosixSerialPort port(pty.devicePath());
    port.open();
    pty.closeController();
    try {
        (void)port.write(Bytes{1, 2, 3});
        FAIL() << "write to a hung-up terminal succeeded";
    } catch (const SerialPortError& error) {
        EXPECT_EQ(error.kind(), SerialPortError::Kind::writeFailed);
        EXPECT_EQ(std::string(error.what()),
                  "Failed to write to serial port at " + pty.devicePath());
    }
}

class CandidatePaths : public testing::Test {
protected:
    void SetUp() override {
        root = fs::temp_directory_path() /
               ("kelvo-serial-" + std::to_string(::getpid()) + "-" +
                testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(root);
        fs::create_directories(root / "dev");
        fs::create_directories(root / "by-id");
        folders = {(root / "dev").string(), (root / "by-id").string()};
    }
    void TearDown() override { fs::remove_all(root); }

    void device(const std::string& name) { std::ofstream(root / "dev" / name) << ""; }
    void link(const std::string& name, const std::string& target) {
        fs::create_symlink(root / "dev" / target, root / "by-id" / name);
    }
    std::string dev(const std::string& name) const { return (root / "dev" / name).string(); }
    std::string byID(const std::string& name) const { return (root / "by-id" / name).string(); }

    fs::path root;
    SerialDeviceFolders folders;
};

TEST_F(CandidatePaths, FixedPathThenMacNamesThenWidgetLinksThenTtyUSBThenTtyACM) {
    for (const char* name : {"ttyACM0", "ttyUSB1", "cu.usbmodem14", "ttyUSB0", "cu.usbserial-A9",
                             "ttyS0", "cu.Bluetooth", "tty.usbserial-A9", "ttyUSB10", "null"})
        device(name);
    link("usb-FTDI_FT232R_USB_UART_A1-if00-port0", "ttyUSB1");
    link("usb-ENTTEC_DMX_USB_PRO_EN1-if00-port0", "ttyUSB0");
    link("usb-Arduino_Uno_85-if00", "ttyACM0");

    EXPECT_THAT(EnttecSerialSender::defaultCandidatePaths(folders),
                ElementsAre("/dev/cu.usbserial-EN419206", dev("cu.usbmodem14"),
                            dev("cu.usbserial-A9"), byID("usb-ENTTEC_DMX_USB_PRO_EN1-if00-port0"),
                            byID("usb-FTDI_FT232R_USB_UART_A1-if00-port0"), dev("ttyUSB10"),
                            dev("ttyACM0")));
}

TEST_F(CandidatePaths, LowerCaseMakerNamesCountAndMissingFoldersGiveOnlyTheFixedPath) {
    device("ttyUSB0");
    link("usb-enttec_open_dmx-if00", "ttyUSB0");
    EXPECT_THAT(EnttecSerialSender::defaultCandidatePaths(folders),
                ElementsAre("/dev/cu.usbserial-EN419206", byID("usb-enttec_open_dmx-if00")));

    EXPECT_THAT(EnttecSerialSender::defaultCandidatePaths({"/nonexistent/dev", "/nonexistent/id"}),
                ElementsAre("/dev/cu.usbserial-EN419206"));
}

} // namespace
} // namespace kelvo
