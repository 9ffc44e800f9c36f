#include "DMX/PosixSerialPort.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace kelvo {

namespace {

bool configureRaw57600(int fd) {
    termios settings{};
    if (::tcgetattr(fd, &settings) != 0)
        return false;
    ::cfmakeraw(&settings);
    // No carrier, no flow control: a widget that drops CTS or sends XOFF must not hold frames.
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cflag &= ~CRTSCTS;
    settings.c_iflag &= ~(IXON | IXOFF | IXANY);
    if (::cfsetispeed(&settings, B57600) != 0 || ::cfsetospeed(&settings, B57600) != 0)
        return false;
    return ::tcsetattr(fd, TCSANOW, &settings) == 0;
}

} // namespace

PosixSerialPort::PosixSerialPort(std::string path) : path_(std::move(path)) {}

PosixSerialPort::~PosixSerialPort() {
    close();
}

void PosixSerialPort::open() {
    if (fileDescriptor_ >= 0)
        return;
    // Non-blocking for good: open() does not wait for carrier and write() never waits for a
    // widget that stopped draining (the engine tick calls it).
    const int fd = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        throw SerialPortError::openFailed(path_);
    // Exclusive, so no other program (a modem manager, a second bridge) writes into our frames.
    if (::ioctl(fd, TIOCEXCL) != 0 || !configureRaw57600(fd)) {
        ::close(fd);
        throw SerialPortError::openFailed(path_);
    }
    fileDescriptor_ = fd;
    unsentTail_.clear();
}

std::size_t PosixSerialPort::writeSome(std::span<const std::uint8_t> bytes) {
    for (;;) {
        const ssize_t written = ::write(fileDescriptor_, bytes.data(), bytes.size());
        if (written >= 0)
            return static_cast<std::size_t>(written);
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return 0;
        if (errno != EINTR)
            throw SerialPortError::writeFailed(path_);
    }
}

bool PosixSerialPort::write(std::span<const std::uint8_t> frame) {
    open();
    if (!unsentTail_.empty()) {
        const std::size_t sent = writeSome(unsentTail_);
        unsentTail_.erase(unsentTail_.begin(), unsentTail_.begin() + static_cast<long>(sent));
        if (!unsentTail_.empty())
            return false;
    }
    const std::size_t sent = writeSome(frame);
    if (sent == 0 && !frame.empty())
        return false;
    unsentTail_.assign(frame.begin() + static_cast<long>(sent), frame.end());
    return true;
}

void PosixSerialPort::close() {
    if (fileDescriptor_ >= 0) {
        ::tcflush(fileDescriptor_, TCOFLUSH);
        ::close(fileDescriptor_);
    }
    fileDescriptor_ = -1;
    unsentTail_.clear();
}

} // namespace kelvo
