#pragma once

#include "Audio/Devices/AudioDeviceLayer.h"
#include "Audio/Devices/AudioInputDeviceTypes.h"

#include <QObject>

#include <memory>
#include <vector>

namespace kelvo {

/// Lists the audio inputs and follows the list as devices come and go. Lives on the main
/// thread; the layer's change notices are moved there.
class AudioInputDeviceMonitor : public QObject {
    Q_OBJECT

public:
    explicit AudioInputDeviceMonitor(std::shared_ptr<AudioDeviceLayer> layer,
                                     QObject* parent = nullptr);
    ~AudioInputDeviceMonitor() override;

    const std::vector<AudioInputDeviceInfo>& devices() const { return devices_; }

    /// Lists the devices now when called on the monitor's thread, else on it, later.
    void refresh();
    /// Follows device-list changes; true when the layer can deliver them.
    bool startListening();
    bool isListening() const { return listening_; }

    /// The inputs of `layer`: devices with input channels and a UID, USB mixers first, then
    /// other USB devices, then built-in ones, then the rest, each group in the layer's order.
    static std::vector<AudioInputDeviceInfo> listInputDevices(AudioDeviceLayer& layer);
    /// The layer's id of the device with this UID.
    static std::optional<std::string> deviceID(AudioDeviceLayer& layer, const std::string& uid);
    static AudioClockTransport clockTransport(AudioDeviceLayer& layer, const std::string& id);

signals:
    void devicesChanged(const std::vector<AudioInputDeviceInfo>& devices);
    /// After every listing, changed or not: the layer asked for one (a device came or went,
    /// or the audio server was reached again).
    void listed();

private:
    std::shared_ptr<AudioDeviceLayer> layer_;
    std::vector<AudioInputDeviceInfo> devices_;
    bool listening_ = false;
};

} // namespace kelvo
