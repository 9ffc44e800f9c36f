#include "Audio/Devices/AudioInputSelectionModel.h"

#include "Audio/Devices/AudioInputSelection.h"

#include <algorithm>

namespace kelvo {

AudioInputSelectionModel::AudioInputSelectionModel(QObject* parent) : QObject(parent) {}

std::set<std::string>
AudioInputSelectionModel::usbUIDs(const std::vector<AudioInputDeviceInfo>& devices) {
    std::set<std::string> uids;
    for (const AudioInputDeviceInfo& device : devices)
        if (device.isUSB)
            uids.insert(device.uid);
    return uids;
}

void AudioInputSelectionModel::startAudioDeviceMonitoring(AudioInputDeviceMonitor& monitor) {
    knownUSB_ = usbUIDs(monitor.devices());
    setDevices(monitor.devices());
    applyAudioInputSelection(false);
    connect(&monitor, &AudioInputDeviceMonitor::devicesChanged, this,
            &AudioInputSelectionModel::handleAudioDevicesChanged, Qt::QueuedConnection);
}

void AudioInputSelectionModel::handleAudioDevicesChanged(
    const std::vector<AudioInputDeviceInfo>& devices) {
    const std::set<std::string> usb = usbUIDs(devices);
    // The microphone choice lasts only as long as the USB situation it was made in.
    if (usb.empty() != knownUSB_.empty())
        storePreferMicrophone(false);
    knownUSB_ = usb;
    setDevices(devices);
    applyAudioInputSelection(true);
}

void AudioInputSelectionModel::applyAudioInputSelection(bool restartIfRunning) {
    ResolvedAudioInput chosen = AudioInputSelection::resolve(devices_, preferMicrophone_);
    if (!selectedUID_ && launchUID_)
        selectedUID_ = launchUID_; // dropped again below while it is not listed
    if (selectedUID_) {
        const auto it = std::find_if(devices_.begin(), devices_.end(),
                                     [&](const auto& d) { return d.uid == *selectedUID_; });
        if (it != devices_.end())
            chosen = {it->isUSB ? AudioInputSourceKind::usb : AudioInputSourceKind::microphone,
                      it->uid, AudioInputSelection::shortDisplayName(*it)};
        else
            selectedUID_.reset();
    }
    const bool changed = chosen.uid != activeUID_ || chosen.kind != kind_;

    if (kind_ != chosen.kind) {
        kind_ = chosen.kind;
        emit audioInputKindChanged();
    }
    if (displayName_ != chosen.displayName) {
        displayName_ = chosen.displayName;
        emit audioInputDisplayNameChanged();
    }
    if (activeUID_ != chosen.uid) {
        activeUID_ = chosen.uid;
        emit activeAudioDeviceUIDChanged();
    }

    if (restartIfRunning && changed)
        emit captureRestartNeeded(activeUID_, captureChannelCount());
}

void AudioInputSelectionModel::selectAudioInputDevice(const std::string& uid) {
    const bool listed =
        std::any_of(devices_.begin(), devices_.end(), [&](const auto& d) { return d.uid == uid; });
    if (!listed)
        return;
    selectedUID_ = uid;
    launchUID_.reset();
    applyAudioInputSelection(true);
}

void AudioInputSelectionModel::preferAudioInputDevice(const std::string& uid) {
    launchUID_ = uid;
    selectedUID_.reset();
    applyAudioInputSelection(true);
}

std::optional<int> AudioInputSelectionModel::captureChannelCount() const {
    if (!activeUID_)
        return std::nullopt;
    for (const AudioInputDeviceInfo& device : devices_)
        if (device.uid == *activeUID_ && AudioInputSelection::isPioneerMixerName(device.name))
            return 2;
    return std::nullopt;
}

void AudioInputSelectionModel::setPreferMicrophoneOverUSB(bool prefer) {
    if (storePreferMicrophone(prefer))
        applyAudioInputSelection(true);
}

bool AudioInputSelectionModel::storePreferMicrophone(bool prefer) {
    if (preferMicrophone_ == prefer)
        return false;
    preferMicrophone_ = prefer;
    emit preferMicrophoneOverUSBChanged();
    return true;
}

void AudioInputSelectionModel::setDevices(std::vector<AudioInputDeviceInfo> devices) {
    if (devices_ == devices)
        return;
    devices_ = std::move(devices);
    emit audioInputDevicesChanged();
}

} // namespace kelvo
