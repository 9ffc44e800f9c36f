// The operations the dashboard calls, in the dashboard's own types.
#include "Engine/AppModel.h"

#include <algorithm>
#include <cmath>

namespace kelvo {

void AppModel::selectLightingMode(const QString& modeId) {
    selectLightingBlend(LightingModeSelection{modeId.toStdString(), std::nullopt, 0.0});
}

void AppModel::selectLightingBlend(const QString& modeId, const QString& modeTo, double amount) {
    LightingModeSelection selection{modeId.toStdString(), std::nullopt,
                                    std::isfinite(amount) ? std::clamp(amount, 0.0, 1.0) : 0.0};
    if (!modeTo.isEmpty())
        selection.modeTo = modeTo.toStdString();
    selectLightingBlend(selection);
}

void AppModel::holdDropFromPointer(bool held) {
    if (held)
        beginForcedDrop(DropHoldSource::pointer);
    else
        endForcedDrop(DropHoldSource::pointer);
}

void AppModel::selectAudioInputDevice(const QString& uid) {
    audioSelection_->selectAudioInputDevice(uid.toStdString());
}

void AppModel::setShowingDropDiagnostics(bool showing) {
    if (showingDropDiagnostics_ == showing)
        return;
    showingDropDiagnostics_ = showing;
    emit showingDropDiagnosticsChanged();
}

QObject* AppModel::recordingObject() const {
    return &mic_->recording();
}

QVariantList AppModel::audioInputDevicesVariant() const {
    QVariantList devices;
    for (const AudioInputDeviceInfo& device : audioSelection_->audioInputDevices())
        devices.append(QVariantMap{{"uid", QString::fromStdString(device.uid)},
                                   {"name", QString::fromStdString(device.name)},
                                   {"isUSB", device.isUSB},
                                   {"isBuiltIn", device.isBuiltIn}});
    return devices;
}

} // namespace kelvo
