#pragma once

#include "DMX/EnttecWidgetIdentification.h"
#include "DMX/SerialPortWriting.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvo {

class SerialQueue;

/// What a widget scan is made of; the running system uses `EnttecScanning::system()`.
struct EnttecScanning {
    using PortFactory = std::function<std::unique_ptr<SerialPortWriting>(const std::string&)>;
    using CandidatePathsProvider = std::function<std::vector<std::string>()>;
    using Identifier = std::function<WidgetVerdict(const std::string&, SerialPortWriting&)>;
    using Runner = std::function<void(std::function<void()>)>;

    PortFactory makePort;                  ///< a new, unopened port for a path
    CandidatePathsProvider candidatePaths; ///< devices to consider, best first
    Identifier identify;                   ///< may open the port and probe it
    Runner run; ///< where a scan runs; empty: the finder's own "kelvo.bridge.enttec-scan" thread

    /// `PosixSerialPort`, the default candidates and `identifyEnttecWidget` on a worker.
    static EnttecScanning system();
};

/// Looks for the widget off the main thread: lists the candidates, identifies each device it
/// has no verdict for yet (the verdict holds until the device is unplugged), and leaves the
/// first widget it could open for the main thread to take.
class EnttecWidgetFinder {
public:
    struct Found {
        std::string path;
        std::unique_ptr<SerialPortWriting> port; ///< open
    };

    static constexpr const char* queueLabel = "kelvo.bridge.enttec-scan";

    explicit EnttecWidgetFinder(EnttecScanning scanning);
    /// Waits for a scan under way (a probe takes at most `widgetProbeTimeout`).
    ~EnttecWidgetFinder();
    EnttecWidgetFinder(const EnttecWidgetFinder&) = delete;
    EnttecWidgetFinder& operator=(const EnttecWidgetFinder&) = delete;

    /// Starts a scan unless one is under way. Never waits.
    void startScan();
    bool isScanning() const;
    /// The widget the last scan opened, once; nothing while none was found.
    std::optional<Found> takeFound();
    /// Closes a widget found but not yet taken, and one that a scan under way finds.
    void discardFound();
    /// Candidates the last scan judged not to be a widget: they are never written.
    std::vector<std::string> ignoredDevices() const;

    struct State;

private:
    std::shared_ptr<State> state_;
    std::unique_ptr<SerialQueue> queue_; // declared last: joined before `state_` goes
};

} // namespace kelvo
