#include "DMX/EnttecWidgetFinder.h"

#include "DMX/EnttecSerialSender.h"
#include "DMX/PosixSerialPort.h"
#include "Support/SerialQueue.h"

#include <map>
#include <mutex>
#include <sys/stat.h>
#include <utility>

namespace kelvo {

namespace {

// The same node number again after an unplug is another device: its inode is new. The path is
// part of the key: a maker's link that udev adds after a silent first probe of the node is
// judged by its name, not by that probe.
std::string deviceKey(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return path;
    return std::to_string(info.st_rdev) + ":" + std::to_string(info.st_ino) + ":" + path;
}

} // namespace

EnttecScanning EnttecScanning::system() {
    return {[](const std::string& path) -> std::unique_ptr<SerialPortWriting> {
                return std::make_unique<PosixSerialPort>(path);
            },
            [] { return EnttecSerialSender::defaultCandidatePaths(); },
            [](const std::string& path, SerialPortWriting& port) {
                return identifyEnttecWidget(path, port);
            },
            {}};
}

struct EnttecWidgetFinder::State {
    explicit State(EnttecScanning s) : scanning(std::move(s)) {}

    const EnttecScanning scanning;
    std::map<std::string, WidgetVerdict> verdicts; // by device; the scan's thread only

    mutable std::mutex lock; // guards the fields below
    bool scanRunning = false;
    std::uint64_t generation = 0; // a discard makes the scans under way stale
    std::optional<Found> found;
    std::vector<std::string> ignored;

    void scan(std::uint64_t startedIn) {
        std::optional<Found> widget;
        std::vector<std::string> ignoredNow;
        std::map<std::string, WidgetVerdict> seen;
        for (const std::string& path : scanning.candidatePaths()) {
            const std::string key = deviceKey(path);
            const auto known = verdicts.find(key);
            std::optional<WidgetVerdict> verdict;
            if (known != verdicts.end())
                verdict = seen[key] = known->second;
            if (verdict == WidgetVerdict::notWidget)
                ignoredNow.push_back(path);
            if (verdict == WidgetVerdict::notWidget || widget)
                continue; // the rest is judged once this widget is gone
            std::unique_ptr<SerialPortWriting> port = scanning.makePort(path);
            if (!port)
                continue;
            try {
                if (!verdict)
                    verdict = scanning.identify(path, *port);
                if (verdict == WidgetVerdict::widget)
                    port->open();
            } catch (const SerialPortError&) {
                continue; // busy or gone: no verdict, asked again next scan
            }
            if (verdict == WidgetVerdict::unavailable)
                continue;
            seen[key] = *verdict;
            if (verdict == WidgetVerdict::widget)
                widget = Found{path, std::move(port)};
            else
                ignoredNow.push_back(path);
        }
        // Devices no longer listed were unplugged: one plugged in later is judged anew.
        verdicts = std::move(seen);
        std::lock_guard guard(lock);
        scanRunning = false;
        ignored = std::move(ignoredNow);
        if (widget && startedIn == generation)
            found = std::move(widget);
    }
};

EnttecWidgetFinder::EnttecWidgetFinder(EnttecScanning scanning)
    : state_(std::make_shared<State>(std::move(scanning))) {
    if (!state_->scanning.run)
        queue_ = std::make_unique<SerialQueue>(queueLabel);
}

EnttecWidgetFinder::~EnttecWidgetFinder() = default;

void EnttecWidgetFinder::startScan() {
    std::uint64_t generation;
    {
        std::lock_guard guard(state_->lock);
        if (state_->scanRunning)
            return;
        state_->scanRunning = true;
        generation = state_->generation;
    }
    auto task = [state = state_, generation] { state->scan(generation); };
    if (queue_)
        queue_->async(std::move(task));
    else
        state_->scanning.run(std::move(task));
}

bool EnttecWidgetFinder::isScanning() const {
    std::lock_guard guard(state_->lock);
    return state_->scanRunning;
}

std::optional<EnttecWidgetFinder::Found> EnttecWidgetFinder::takeFound() {
    std::lock_guard guard(state_->lock);
    return std::exchange(state_->found, std::nullopt);
}

void EnttecWidgetFinder::discardFound() {
    std::optional<Found> stale;
    {
        std::lock_guard guard(state_->lock);
        ++state_->generation;
        stale = std::exchange(state_->found, std::nullopt);
    }
    if (stale)
        stale->port->close();
}

std::vector<std::string> EnttecWidgetFinder::ignoredDevices() const {
    std::lock_guard guard(state_->lock);
    return state_->ignored;
}

} // namespace kelvo
