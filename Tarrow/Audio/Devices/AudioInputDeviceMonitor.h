#pragma once

#include "Audio/Devices/AudioDeviceLayer.h"
#include "Audio/Devices/AudioInputDeviceTypes.h"

#include <QObject>

#include <atomic>
#include <memory>
#include <vector>

namespace kelvo {

class SerialQueue;

/// Lists the audio inputs and follows the list as devices come and go. Lives on the main
/// thread. A layer that may wait for an audio server is listed on the "kelvo.audio-devices"
/// thread, so a server that is slow to answer never holds up the main thread; the list is
/// handed back to it.
class AudioInputDeviceMonitor : public QObject {
    Q_OBJECT

public:
    explicit AudioInputDeviceMonitor(std::shared_ptr<AudioDeviceLayer> layer,
                                     QObject* parent = nullptr);
    ~AudioInputDeviceMonitor() override;

    const std::vector<AudioInputDeviceInfo>& devices() const { return devices_; }

    /// Lists the devices, from any thread: on the listing thread when the layer may wait for
    /// a server, else now on the monitor's thread.
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
    /// Lists on the listing thread and hands the list back; from any thread. Changes that come
    /// while a listing is under way are covered by one more listing.
    void listInBackground();
    void apply(std::vector<AudioInputDeviceInfo> inputs);

    std::shared_ptr<AudioDeviceLayer> layer_;
    std::vector<AudioInputDeviceInfo> devices_;
    bool listening_ = false;
    std::atomic<bool> listingQueued_{false};
    std::unique_ptr<SerialQueue> lister_;
};

} // namespace kelvo
