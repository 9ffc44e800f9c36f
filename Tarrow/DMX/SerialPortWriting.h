#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

namespace kelvo {

/// Why a serial port could not be used; `what()` is the text shown to the operator.
class SerialPortError : public std::runtime_error {
public:
    enum class Kind { openFailed, writeFailed };

    static SerialPortError openFailed(const std::string& path) {
        return {Kind::openFailed, path, "Failed to open serial port at " + path};
    }
    static SerialPortError writeFailed(const std::string& path) {
        return {Kind::writeFailed, path, "Failed to write to serial port at " + path};
    }

    Kind kind() const { return kind_; }
    const std::string& path() const { return path_; }

private:
    SerialPortError(Kind kind, std::string path, const std::string& description)
        : std::runtime_error(description), kind_(kind), path_(std::move(path)) {}

    Kind kind_;
    std::string path_;
};

/// A serial device that takes whole frames without ever blocking its caller. `open` and
/// `write` throw `SerialPortError`.
class SerialPortWriting {
public:
    virtual ~SerialPortWriting() = default;

    virtual const std::string& path() const = 0;
    /// -1 while closed.
    virtual int fileDescriptor() const = 0;
    virtual void open() = 0;
    /// Opens first if closed. True when the device took the frame; false when it cannot take
    /// it now (its buffer is full): the frame is dropped whole, never cut. Throws
    /// `writeFailed` when the device is gone or broken.
    [[nodiscard]] virtual bool write(std::span<const std::uint8_t> frame) = 0;
    virtual void close() = 0;
};

} // namespace kelvo
