#include "DMX/EnttecSerialSender.h"

#include "DMX/EnttecFrameBuilder.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>

namespace kelvo {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> sortedNames(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        names.push_back(it->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

bool startsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

bool namesWidgetMaker(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return name.find("ENTTEC") != std::string::npos || name.find("FTDI") != std::string::npos;
}

// Collects paths in order, skipping a path already listed and a link to a device already listed.
class CandidateList {
public:
    void add(const std::string& path) {
        std::error_code error;
        const fs::path device = fs::canonical(path, error);
        const std::string identity = error ? path : device.string();
        if (!paths_.insert(path).second || !devices_.insert(identity).second)
            return;
        list_.push_back(path);
    }
    std::vector<std::string> take() { return std::move(list_); }

private:
    std::vector<std::string> list_;
    std::set<std::string> paths_;
    std::set<std::string> devices_;
};

} // namespace

EnttecSerialSender::EnttecSerialSender() : EnttecSerialSender(EnttecScanning::system()) {}

EnttecSerialSender::EnttecSerialSender(PortFactory portFactory,
                                       CandidatePathsProvider candidatePathsProvider,
                                       std::shared_ptr<const MonotonicClock> clock)
    : EnttecSerialSender(EnttecScanning{std::move(portFactory),
                                        std::move(candidatePathsProvider),
                                        EnttecScanning::system().identify,
                                        {}},
                         std::move(clock)) {}

EnttecSerialSender::EnttecSerialSender(EnttecScanning scanning,
                                       std::shared_ptr<const MonotonicClock> clock)
    : finder_(std::make_unique<EnttecWidgetFinder>(std::move(scanning))), clock_(std::move(clock)) {
}

bool EnttecSerialSender::adoptFound() {
    std::optional<EnttecWidgetFinder::Found> found = finder_->takeFound();
    if (!found)
        return false;
    port_ = std::move(found->port);
    connectedPortPath_ = std::move(found->path);
    return true;
}

SerialPortWriting* EnttecSerialSender::resolvePort() {
    if (port_ && port_->fileDescriptor() >= 0)
        return port_.get();
    if (adoptFound())
        return port_.get();
    const std::chrono::nanoseconds now = clock_->now();
    if (finder_->isScanning() || (lastScan_ && now - *lastScan_ < rescanInterval))
        return nullptr;
    lastScan_ = now;
    finder_->startScan();
    return adoptFound() ? port_.get() : nullptr; // a scan that ran inline has its answer
}

bool EnttecSerialSender::sendDmx(std::span<const std::uint8_t> channels) {
    SerialPortWriting* port = resolvePort();
    if (!port)
        return false;
    try {
        const bool written = port->write(EnttecFrameBuilder::buildSendDmxFrame(channels));
        ++(written ? counts_.framesWritten : counts_.framesDropped);
        return written;
    } catch (const SerialPortError&) {
        ++counts_.writeFailures;
        dropPort();
        return false;
    }
}

EnttecOutputStatus EnttecSerialSender::status() const {
    EnttecOutputStatus status = counts_;
    status.devicePath = connectedPortPath_;
    status.ignoredDevices = finder_->ignoredDevices();
    return status;
}

void EnttecSerialSender::dropPort() {
    if (port_ && port_->fileDescriptor() >= 0)
        port_->close();
    port_.reset();
    connectedPortPath_.reset();
}

void EnttecSerialSender::disconnect() {
    dropPort();
    finder_->discardFound();
    lastScan_.reset();
}

std::vector<std::string>
EnttecSerialSender::defaultCandidatePaths(const SerialDeviceFolders& folders) {
    CandidateList candidates;
    candidates.add(fixedWidgetPath);
    const std::vector<std::string> devNames = sortedNames(folders.dev);
    for (const std::string& name : devNames)
        if (startsWith(name, "cu.usbserial") || startsWith(name, "cu.usbmodem"))
            candidates.add(folders.dev + "/" + name);
    for (const std::string& name : sortedNames(folders.byID))
        if (namesWidgetMaker(name))
            candidates.add(folders.byID + "/" + name);
    for (const char* prefix : {"ttyUSB", "ttyACM"})
        for (const std::string& name : devNames)
            if (startsWith(name, prefix))
                candidates.add(folders.dev + "/" + name);
    return candidates.take();
}

} // namespace kelvo
