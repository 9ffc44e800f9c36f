#pragma once

#include "Audio/Devices/AudioDeviceLayer.h"

#include <map>

namespace kelvo::test {

/// A device layer held in memory.
class FakeAudioDeviceLayer : public AudioDeviceLayer {
public:
    std::vector<AudioDeviceRecord> records;
    std::optional<std::string> defaultInput;
    std::optional<std::string> defaultOutput;
    std::map<std::string, double> rates;
    std::map<std::string, std::vector<AudioSampleRateRange>> ranges;
    int setRateStatus = 0;
    bool rateNeverSettles = false;
    std::vector<std::pair<std::string, double>> rateWrites;
    std::function<void()> listener;

    void addInput(const std::string& uid, const std::string& name, AudioClockTransport transport,
                  int channels = 2, double rate = 48000) {
        records.push_back({uid, uid, name, transport, channels});
        rates[uid] = rate;
    }
    void addOutput(const std::string& id, double rate) {
        records.push_back({id, id, id, AudioClockTransport::builtIn, 0});
        rates[id] = rate;
        defaultOutput = id;
    }

    std::vector<AudioDeviceRecord> devices() override { return records; }
    std::optional<std::string> defaultInputDevice() override { return defaultInput; }
    std::optional<std::string> defaultOutputDevice() override { return defaultOutput; }
    std::optional<double> nominalSampleRate(const std::string& id) override {
        const auto it = rates.find(id);
        return it == rates.end() ? std::nullopt : std::optional(it->second);
    }
    int setNominalSampleRate(const std::string& id, double hz) override {
        rateWrites.emplace_back(id, hz);
        if (setRateStatus == 0 && !rateNeverSettles)
            rates[id] = hz;
        return setRateStatus;
    }
    std::vector<AudioSampleRateRange> availableSampleRates(const std::string& id) override {
        return ranges[id];
    }
    bool setChangeListener(std::function<void()> l) override {
        listener = std::move(l);
        return true;
    }
};

} // namespace kelvo::test
