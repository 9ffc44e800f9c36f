#pragma once

#include "Audio/Devices/AudioInputDeviceMonitor.h"
#include "Audio/Devices/AudioInputDeviceTypes.h"

#include <QObject>
#include <QString>

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kelvo {

/// The application model's audio-input choice: which device capture uses, how it is shown,
/// and how the choice follows devices coming and going. Main thread only. A changed choice is
/// announced with `captureRestartNeeded`; the owner restarts capture while the engine loop runs.
class AudioInputSelectionModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString audioInputKind READ audioInputKindText NOTIFY audioInputKindChanged)
    Q_PROPERTY(QString activeAudioDeviceUID READ activeAudioDeviceUIDText NOTIFY
                   activeAudioDeviceUIDChanged)
    Q_PROPERTY(QString audioInputDisplayName READ audioInputDisplayNameText NOTIFY
                   audioInputDisplayNameChanged)
    Q_PROPERTY(bool preferMicrophoneOverUSB READ preferMicrophoneOverUSB WRITE
                   setPreferMicrophoneOverUSB NOTIFY preferMicrophoneOverUSBChanged)

public:
    static constexpr const char* unavailablePrefix = "Audio input unavailable: ";

    explicit AudioInputSelectionModel(QObject* parent = nullptr);

    /// Takes the monitor's devices, applies the choice without restarting, then follows the
    /// monitor's changes.
    void startAudioDeviceMonitoring(AudioInputDeviceMonitor& monitor);
    void handleAudioDevicesChanged(const std::vector<AudioInputDeviceInfo>& devices);
    void applyAudioInputSelection(bool restartIfRunning);
    /// A device picked by hand; ignored unless it is listed.
    void selectAudioInputDevice(const std::string& uid);
    /// A device asked for at launch: taken whenever it is listed, also when it comes back after
    /// an unplug or an audio-server restart, until another is picked by hand.
    void preferAudioInputDevice(const std::string& uid);
    /// 2 for a recognised mixer (its first stereo pair is the master), else absent (all).
    std::optional<int> captureChannelCount() const;

    const std::vector<AudioInputDeviceInfo>& audioInputDevices() const { return devices_; }
    AudioInputSourceKind audioInputKind() const { return kind_; }
    const std::string& audioInputDisplayName() const { return displayName_; }
    const std::optional<std::string>& activeAudioDeviceUID() const { return activeUID_; }
    const std::optional<std::string>& selectedAudioDeviceUID() const { return selectedUID_; }
    const std::set<std::string>& knownUSBUIDs() const { return knownUSB_; }
    bool preferMicrophoneOverUSB() const { return preferMicrophone_; }
    /// The operator's switch: capture moves at once.
    void setPreferMicrophoneOverUSB(bool prefer);

signals:
    void audioInputDevicesChanged();
    void audioInputKindChanged();
    void audioInputDisplayNameChanged();
    void activeAudioDeviceUIDChanged();
    void preferMicrophoneOverUSBChanged();
    /// The choice changed where a restart was asked for: capture should move to `uid`.
    void captureRestartNeeded(const std::optional<std::string>& uid, std::optional<int> channels);

private:
    void setDevices(std::vector<AudioInputDeviceInfo> devices);
    /// True when it changed.
    bool storePreferMicrophone(bool prefer);
    QString audioInputDisplayNameText() const { return QString::fromStdString(displayName_); }
    QString audioInputKindText() const {
        return QString::fromUtf8(textValue(kind_).data(), qsizetype(textValue(kind_).size()));
    }
    QString activeAudioDeviceUIDText() const {
        return activeUID_ ? QString::fromStdString(*activeUID_) : QString();
    }
    static std::set<std::string> usbUIDs(const std::vector<AudioInputDeviceInfo>& devices);

    std::vector<AudioInputDeviceInfo> devices_;
    AudioInputSourceKind kind_ = AudioInputSourceKind::microphone;
    std::string displayName_ = "Microphone";
    std::optional<std::string> activeUID_;
    std::optional<std::string> selectedUID_;
    std::optional<std::string> launchUID_;
    std::set<std::string> knownUSB_;
    bool preferMicrophone_ = false;
};

} // namespace kelvo
