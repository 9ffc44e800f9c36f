#pragma once

#include "DMX/SerialPortWriting.h"

#include <vector>

namespace kelvo {

/// A USB serial device driven through termios: raw mode, 57600 baud, no flow control, opened
/// exclusively and never blocking. A frame the driver takes only in part has its tail sent
/// before any later frame, so the widget never sees a cut message.
class PosixSerialPort final : public SerialPortWriting {
public:
    explicit PosixSerialPort(std::string path);
    ~PosixSerialPort() override;
    PosixSerialPort(const PosixSerialPort&) = delete;
    PosixSerialPort& operator=(const PosixSerialPort&) = delete;

    const std::string& path() const override { return path_; }
    int fileDescriptor() const override { return fileDescriptor_; }
    void open() override;
    [[nodiscard]] bool write(std::span<const std::uint8_t> frame) override;
    /// Discards what the device has not taken yet, so closing never waits for it.
    void close() override;

private:
    /// Writes what it can without waiting; returns how many bytes went, or throws.
    std::size_t writeSome(std::span<const std::uint8_t> bytes);

    std::string path_;
    int fileDescriptor_ = -1;
    std::vector<std::uint8_t> unsentTail_;
};

} // namespace kelvo
