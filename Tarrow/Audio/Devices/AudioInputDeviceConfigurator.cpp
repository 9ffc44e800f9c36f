#include "Audio/Devices/AudioInputDeviceConfigurator.h"

#include "Audio/Devices/AudioInputDeviceMonitor.h"
#include "Audio/Devices/AudioInputSelection.h"

#include <cmath>
#include <thread>

namespace kelvo {

AudioInputDeviceConfigurator::Waiting AudioInputDeviceConfigurator::Waiting::real() {
    return {[] { return std::chrono::steady_clock::now(); },
            [](std::chrono::milliseconds d) { std::this_thread::sleep_for(d); }};
}

std::optional<std::string> AudioInputDeviceConfigurator::setInputDevice(
    AudioDeviceLayer& layer, const std::optional<std::string>& uid, const Waiting& waiting) {
    std::optional<std::string> id;
    if (uid) {
        id = AudioInputDeviceMonitor::deviceID(layer, *uid);
        if (!id)
            throw AudioInputDeviceException({AudioInputDeviceError::DeviceNotFound{*uid}});
    } else {
        id = layer.defaultInputDevice();
        if (!id)
            return std::nullopt;
    }
    alignInputClock(layer, *id, waiting);
    return uid ? id : std::nullopt;
}

void AudioInputDeviceConfigurator::alignInputClock(AudioDeviceLayer& layer,
                                                   const std::string& deviceID,
                                                   const Waiting& waiting) {
    const std::optional<std::string> output = layer.defaultOutputDevice();
    if (!output)
        return;
    const double inputRate = layer.nominalSampleRate(deviceID).value_or(0.0);
    const double outputRate = layer.nominalSampleRate(*output).value_or(0.0);
    std::string name;
    for (const AudioDeviceRecord& record : layer.devices())
        if (record.id == deviceID)
            name = record.name.value_or(std::string());
    const AudioClockTransport transport = AudioInputDeviceMonitor::clockTransport(layer, deviceID);

    if (!AudioOutputClockPolicy::followsOutputClock(transport, name) || inputRate <= 0 ||
        outputRate <= 0 || std::fabs(inputRate - outputRate) < 1.0)
        return;

    const std::vector<AudioSampleRateRange> ranges = layer.availableSampleRates(deviceID);
    if (!ranges.empty()) {
        bool offered = false;
        for (const AudioSampleRateRange& range : ranges)
            offered =
                offered || (range.minimum - 0.5 <= outputRate && outputRate <= range.maximum + 0.5);
        if (!offered)
            throw AudioInputDeviceException(
                {AudioInputDeviceError::InputClockMismatch{inputRate, outputRate}});
    }
    setNominalSampleRate(layer, outputRate, deviceID, waiting);
}

void AudioInputDeviceConfigurator::setNominalSampleRate(AudioDeviceLayer& layer, double hz,
                                                        const std::string& deviceID,
                                                        const Waiting& waiting) {
    if (const int status = layer.setNominalSampleRate(deviceID, hz); status != 0)
        throw AudioInputDeviceException({AudioInputDeviceError::SetDeviceFailed{status}});
    const auto deadline = waiting.now() + settleTimeout;
    while (waiting.now() < deadline) {
        const double rate = layer.nominalSampleRate(deviceID).value_or(0.0);
        if (std::fabs(rate - hz) <= 1.0)
            return;
        waiting.sleep(settleSlice);
    }
    const double rate = layer.nominalSampleRate(deviceID).value_or(0.0);
    if (std::fabs(rate - hz) <= 1.0)
        return;
    throw AudioInputDeviceException({AudioInputDeviceError::InputClockMismatch{rate, hz}});
}

std::optional<CaptureFormat>
AudioInputDeviceConfigurator::captureFormat(AudioDeviceLayer& layer,
                                            const std::optional<std::string>& uid) {
    std::optional<std::string> id;
    if (uid)
        id = AudioInputDeviceMonitor::deviceID(layer, *uid);
    if (!id)
        id = layer.defaultInputDevice();
    if (!id)
        return std::nullopt;
    const double rate = layer.nominalSampleRate(*id).value_or(0.0);
    int channels = 0;
    for (const AudioDeviceRecord& record : layer.devices())
        if (record.id == *id)
            channels = record.inputChannels.value_or(0);
    if (rate <= 0 || channels < 1)
        return std::nullopt;
    return CaptureFormat{rate, channels};
}

} // namespace kelvo
