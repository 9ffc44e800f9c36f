#pragma once

#include "DMX/EnttecReplyParser.h"
#include "DMX/SerialPortWriting.h"

#include <chrono>
#include <optional>
#include <string>

namespace kelvo {

/// Where serial devices are looked up; tests point them at temporary folders.
struct SerialDeviceFolders {
    std::string dev = "/dev";
    std::string byID = "/dev/serial/by-id";
    std::string sysClassTty = "/sys/class/tty";
};

/// USB vendor and product of a serial device, as sysfs shows them ("0403", "6001").
struct UsbDeviceID {
    std::string vendor;
    std::string product;

    friend bool operator==(const UsbDeviceID&, const UsbDeviceID&) = default;
};

/// Whether a serial device is a DMX USB Pro. `unavailable` (busy, or gone mid-scan) decides
/// nothing and is asked again at the next scan; the other two hold until the device goes.
enum class WidgetVerdict { widget, notWidget, unavailable };

/// The FTDI chip the DMX USB Pro is built on.
inline const UsbDeviceID ftdiFT232R{"0403", "6001"};

/// How long a device may take to answer Get Widget Parameters.
inline constexpr std::chrono::milliseconds widgetProbeTimeout{500};

/// The USB IDs of the device behind `path` (a device node or a link to one), or nothing when
/// it is no USB device.
std::optional<UsbDeviceID> usbDeviceID(const std::string& path,
                                       const SerialDeviceFolders& folders = {});

/// A by-id link whose name says ENTTEC is the widget's own; an Open DMX (which has no
/// widget firmware) still has to answer like a Pro.
bool isEnttecProLink(const std::string& path, const SerialDeviceFolders& folders = {});

/// Asks the open device for its widget parameters and waits for the answer. Worker only.
std::optional<EnttecWidgetParameters>
probeWidgetParameters(int fileDescriptor, std::chrono::milliseconds timeout = widgetProbeTimeout);

/// A by-id ENTTEC link is a widget without opening it; an FTDI FT232R device is opened and
/// is one if it answers the probe; nothing else is ever opened. May throw `SerialPortError`
/// from opening. Worker only: the probe waits.
WidgetVerdict identifyEnttecWidget(const std::string& path, SerialPortWriting& port,
                                   const SerialDeviceFolders& folders = {});

} // namespace kelvo
