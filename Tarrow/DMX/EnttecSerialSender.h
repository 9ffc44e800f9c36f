#pragma once

#include "DMX/EnttecWidgetFinder.h"
#include "DMX/SerialPortWriting.h"
#include "Support/MonotonicClock.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kelvo {

/// What the widget output has done since start, for the status line and the dashboard.
struct EnttecOutputStatus {
    std::optional<std::string> devicePath; ///< the widget being written, if any
    std::int64_t framesWritten = 0;
    std::int64_t framesDropped = 0;          ///< the widget could not take them when they were due
    std::int64_t writeFailures = 0;          ///< each dropped the device and rescanned
    std::vector<std::string> ignoredDevices; ///< serial devices that are no DMX USB Pro

    friend bool operator==(const EnttecOutputStatus&, const EnttecOutputStatus&) = default;
};

/// Drives the Enttec widget: takes the device the finder identified, keeps it open, and drops
/// it when a write fails so that it is looked for again. Scans start at most once a second
/// and run off the main thread; until one has found a widget, frames are not sent. Main
/// thread only.
class EnttecSerialSender {
public:
    using PortFactory = EnttecScanning::PortFactory;
    using CandidatePathsProvider = EnttecScanning::CandidatePathsProvider;

    static constexpr std::chrono::seconds rescanInterval{1};
    static constexpr const char* fixedWidgetPath = "/dev/cu.usbserial-EN419206";

    /// The running system: `EnttecScanning::system()`.
    EnttecSerialSender();
    /// Given ports and candidates, each identified as a widget by the real rules.
    EnttecSerialSender(PortFactory portFactory, CandidatePathsProvider candidatePathsProvider,
                       std::shared_ptr<const MonotonicClock> clock = steadyClock());
    explicit EnttecSerialSender(EnttecScanning scanning,
                                std::shared_ptr<const MonotonicClock> clock = steadyClock());

    /// The open port, or the widget a scan has found (remembered), or nothing this frame.
    /// Without an open port a scan starts at most once per `rescanInterval`.
    SerialPortWriting* resolvePort();

    /// Resolves the port and writes one Send-DMX frame. A frame the widget cannot take now is
    /// dropped and counted; a failed write drops the port. Nothing is thrown. Returns whether
    /// the frame was written.
    bool sendDmx(std::span<const std::uint8_t> channels);

    /// Closes the descriptor at once and forgets the device, so the next send scans again.
    void disconnect();

    const std::optional<std::string>& connectedPortPath() const { return connectedPortPath_; }
    EnttecOutputStatus status() const;

    /// The widget's fixed path, then macOS cu.usbserial*/cu.usbmodem*, then on Linux the
    /// by-id links naming ENTTEC or FTDI, ttyUSB* and ttyACM*; each device once. Listing is
    /// not writing: each is identified first.
    static std::vector<std::string> defaultCandidatePaths(const SerialDeviceFolders& folders = {});

private:
    bool adoptFound();
    /// After a failed write: the device is looked for again at the next scan, keeping the
    /// once-a-second pace even for a device that opens but never takes a write.
    void dropPort();

    std::optional<std::string> connectedPortPath_;
    std::unique_ptr<SerialPortWriting> port_;
    std::unique_ptr<EnttecWidgetFinder> finder_;
    std::shared_ptr<const MonotonicClock> clock_;
    std::optional<std::chrono::nanoseconds> lastScan_;
    EnttecOutputStatus counts_;
};

} // namespace kelvo
