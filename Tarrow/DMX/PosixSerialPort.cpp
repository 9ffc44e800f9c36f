#include "DMX/PosixSerialPort.h"

#include <cerrno>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace kelvo {

namespace {

bool configureRaw57600(int fd) {
    termios settings{};
    if (::tcgetattr(fd, &settings) != 0)
        return false;
    ::cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    if (::cfsetispeed(&settings, B57600) != 0 || ::cfsetospeed(&settings, B57600) != 0)
        return false;
    if (::tcsetattr(fd, TCSANOW, &settings) != 0)
        return false;
    // Back to blocking: a frame write waits until the driver has taken all of it.
    const int flags = ::fcntl(fd, F_GETFL);
    return flags >= 0 && ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

} // namespace

PosixSerialPort::PosixSerialPort(std::string path) : path_(std::move(path)) {}

PosixSerialPort::~PosixSerialPort() {
    close();
}

void PosixSerialPort::open() {
    if (fileDescriptor_ >= 0)
        return;
    // Non-blocking only for the open itself: a USB serial adapter without carrier would
    // otherwise hold open() until DCD rises. CLOCAL below makes carrier irrelevant afterwards.
    const int fd = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        throw SerialPortError::openFailed(path_);
    if (!configureRaw57600(fd)) {
        ::close(fd);
        throw SerialPortError::openFailed(path_);
    }
    fileDescriptor_ = fd;
}

void PosixSerialPort::write(std::span<const std::uint8_t> frame) {
    open();
    ssize_t written;
    do {
        written = ::write(fileDescriptor_, frame.data(), frame.size());
    } while (written < 0 && errno == EINTR);
    if (written < 0 || static_cast<std::size_t>(written) != frame.size())
        throw SerialPortError::writeFailed(path_);
}

void PosixSerialPort::close() {
    if (fileDescriptor_ >= 0)
        ::close(fileDescriptor_);
    fileDescriptor_ = -1;
}

} // namespace kelvo
