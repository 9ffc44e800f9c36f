#pragma once

#include "DMX/SerialPortWriting.h"

namespace kelvo {

/// A USB serial device driven through termios: raw mode, 57600 baud, one write per frame.
class PosixSerialPort final : public SerialPortWriting {
public:
    explicit PosixSerialPort(std::string path);
    ~PosixSerialPort() override;
    PosixSerialPort(const PosixSerialPort&) = delete;
    PosixSerialPort& operator=(const PosixSerialPort&) = delete;

    const std::string& path() const override { return path_; }
    int fileDescriptor() const override { return fileDescriptor_; }
    void open() override;
    void write(std::span<const std::uint8_t> frame) override;
    void close() override;

private:
    std::string path_;
    int fileDescriptor_ = -1;
};

} // namespace kelvo
