#include "DMX/EnttecWidgetIdentification.h"

#include "DMX/EnttecFrameBuilder.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace kelvo {

namespace {

namespace fs = std::filesystem;

std::string firstLine(const fs::path& file) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    return line;
}

std::string upperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

} // namespace

std::optional<UsbDeviceID> usbDeviceID(const std::string& path,
                                       const SerialDeviceFolders& folders) {
    std::error_code error;
    const fs::path node = fs::canonical(path, error);
    if (error)
        return std::nullopt;
    // The tty's device is a USB interface; its IDs sit on the USB device a level or two up.
    fs::path device =
        fs::canonical(fs::path(folders.sysClassTty) / node.filename() / "device", error);
    for (int level = 0; !error && level < 4 && device.has_relative_path();
         ++level, device = device.parent_path()) {
        if (fs::exists(device / "idVendor", error) && fs::exists(device / "idProduct", error))
            return UsbDeviceID{firstLine(device / "idVendor"), firstLine(device / "idProduct")};
    }
    return std::nullopt;
}

bool isEnttecProLink(const std::string& path, const SerialDeviceFolders& folders) {
    const fs::path link(path);
    if (link.parent_path() != fs::path(folders.byID))
        return false;
    const std::string name = upperCase(link.filename().string());
    return name.find("ENTTEC") != std::string::npos && name.find("OPEN") == std::string::npos;
}

std::optional<EnttecWidgetParameters> probeWidgetParameters(int fd,
                                                            std::chrono::milliseconds timeout) {
    ::tcflush(fd, TCIOFLUSH); // nothing stale before the answer
    const std::vector<std::uint8_t> request = EnttecFrameBuilder::buildGetWidgetParametersRequest();
    if (::write(fd, request.data(), request.size()) != static_cast<ssize_t>(request.size()))
        return std::nullopt;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::vector<std::uint8_t> received;
    while (received.size() < 4096) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd entry{fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&entry, 1, static_cast<int>(left.count())) <= 0)
            break;
        std::uint8_t chunk[256];
        const ssize_t got = ::read(fd, chunk, sizeof chunk);
        if (got < 0 && (errno == EAGAIN || errno == EINTR))
            continue;
        if (got <= 0)
            break;
        received.insert(received.end(), chunk, chunk + got);
        if (auto parameters = EnttecReplyParser::findWidgetParameters(received))
            return parameters;
    }
    return std::nullopt;
}

WidgetVerdict identifyEnttecWidget(const std::string& path, SerialPortWriting& port,
                                   const SerialDeviceFolders& folders) {
    if (isEnttecProLink(path, folders))
        return WidgetVerdict::widget;
    // Anything else is opened only if it is the widget's chip: opening resets an Arduino and
    // bytes would confuse a GPS or a relay board.
    if (usbDeviceID(path, folders) != ftdiFT232R)
        return WidgetVerdict::notWidget;
    port.open();
    return probeWidgetParameters(port.fileDescriptor()) ? WidgetVerdict::widget
                                                        : WidgetVerdict::notWidget;
}

} // namespace kelvo
