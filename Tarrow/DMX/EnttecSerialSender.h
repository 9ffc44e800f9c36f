#pragma once

#include "DMX/SerialPortWriting.h"

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kelvo {

/// Where the candidate scan looks; tests point it at temporary folders.
struct SerialDeviceFolders {
    std::string dev = "/dev";
    std::string byID = "/dev/serial/by-id";
};

/// Finds the Enttec widget among the serial devices, keeps it open, and drops it when a
/// write fails so the next frame scans again. Main thread only.
class EnttecSerialSender {
public:
    using PortFactory = std::function<std::unique_ptr<SerialPortWriting>(const std::string&)>;
    using CandidatePathsProvider = std::function<std::vector<std::string>()>;

    static constexpr const char* fixedWidgetPath = "/dev/cu.usbserial-EN419206";

    /// The running system: `PosixSerialPort` and `defaultCandidatePaths()`.
    EnttecSerialSender();
    EnttecSerialSender(PortFactory portFactory, CandidatePathsProvider candidatePathsProvider);

    /// The open port, or the first candidate that opens (remembered), or nothing this frame.
    SerialPortWriting* resolvePort();

    /// Resolves the port and writes one Send-DMX frame. A failed write drops the port;
    /// nothing is thrown. Returns whether the frame was written.
    bool sendDmx(std::span<const std::uint8_t> channels);

    /// Closes the descriptor at once and forgets the device, so the next send scans again.
    void disconnect();

    const std::optional<std::string>& connectedPortPath() const { return connectedPortPath_; }

    /// The widget's fixed path, then macOS cu.usbserial*/cu.usbmodem*, then on Linux the
    /// by-id links naming ENTTEC or FTDI, ttyUSB* and ttyACM*; each device once.
    static std::vector<std::string> defaultCandidatePaths(const SerialDeviceFolders& folders = {});

private:
    std::optional<std::string> connectedPortPath_;
    std::unique_ptr<SerialPortWriting> port_;
    PortFactory portFactory_;
    CandidatePathsProvider candidatePathsProvider_;
};

} // namespace kelvo
