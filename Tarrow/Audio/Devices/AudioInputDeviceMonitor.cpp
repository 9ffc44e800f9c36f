#include "Audio/Devices/AudioInputDeviceMonitor.h"

#include "Audio/Devices/AudioInputSelection.h"
#include "Support/SerialQueue.h"

#include <QMetaObject>
#include <QPointer>
#include <QThread>

#include <algorithm>

namespace kelvo {

AudioInputDeviceMonitor::AudioInputDeviceMonitor(std::shared_ptr<AudioDeviceLayer> layer,
                                                 QObject* parent)
    : QObject(parent), layer_(std::move(layer)),
      lister_(std::make_unique<SerialQueue>("kelvo.audio-devices")) {}

AudioInputDeviceMonitor::~AudioInputDeviceMonitor() {
    if (listening_)
        layer_->setChangeListener({});
    // A listing under way finishes; the list it posts dies with this object's events.
    lister_.reset();
}

void AudioInputDeviceMonitor::refresh() {
    if (layer_->mayWaitForServer()) {
        listInBackground();
        return;
    }
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(
            this, [this] { refresh(); }, Qt::QueuedConnection);
        return;
    }
    apply(listInputDevices(*layer_));
}

void AudioInputDeviceMonitor::listInBackground() {
    if (listingQueued_.exchange(true))
        return;
    lister_->async([this] {
        listingQueued_.store(false);
        std::vector<AudioInputDeviceInfo> inputs = listInputDevices(*layer_);
        QMetaObject::invokeMethod(
            this, [this, inputs = std::move(inputs)]() mutable { apply(std::move(inputs)); },
            Qt::QueuedConnection);
    });
}

void AudioInputDeviceMonitor::apply(std::vector<AudioInputDeviceInfo> inputs) {
    if (inputs != devices_) {
        devices_ = std::move(inputs);
        emit devicesChanged(devices_);
    }
    emit listed();
}

bool AudioInputDeviceMonitor::startListening() {
    // The layer calls from its own thread. The destructor removes the listener and ends the
    // listing thread before the monitor goes.
    listening_ = layer_->setChangeListener([this] { listInBackground(); });
    if (!listening_)
        layer_->setChangeListener({});
    return listening_;
}

std::vector<AudioInputDeviceInfo>
AudioInputDeviceMonitor::listInputDevices(AudioDeviceLayer& layer) {
    std::vector<AudioInputDeviceInfo> inputs;
    for (const AudioDeviceRecord& record : layer.devices()) {
        if (!record.inputChannels || *record.inputChannels < 1 || !record.uid)
            continue;
        inputs.push_back(AudioInputDeviceInfo{*record.uid, record.name.value_or(*record.uid),
                                              record.transport == AudioClockTransport::usb,
                                              record.transport == AudioClockTransport::builtIn});
    }
    auto rank = [](const AudioInputDeviceInfo& d) {
        if (d.isUSB)
            return AudioInputSelection::isPioneerMixerName(d.name) ? 0 : 1;
        return d.isBuiltIn ? 2 : 3;
    };
    std::stable_sort(inputs.begin(), inputs.end(),
                     [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
    return inputs;
}

std::optional<std::string> AudioInputDeviceMonitor::deviceID(AudioDeviceLayer& layer,
                                                             const std::string& uid) {
    for (const AudioDeviceRecord& record : layer.devices())
        if (record.uid == uid)
            return record.id;
    return std::nullopt;
}

AudioClockTransport AudioInputDeviceMonitor::clockTransport(AudioDeviceLayer& layer,
                                                            const std::string& id) {
    for (const AudioDeviceRecord& record : layer.devices())
        if (record.id == id)
            return record.transport;
    return AudioClockTransport::other;
}

} // namespace kelvo
