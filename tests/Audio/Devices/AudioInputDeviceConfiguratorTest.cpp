#include "Audio/Devices/AudioInputDeviceConfigurator.h"
#include "FakeAudioDeviceLayer.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using T = AudioClockTransport;

class ConfiguratorTest : public ::testing::Test {
protected:
    test::FakeAudioDeviceLayer layer;
    std::chrono::steady_clock::time_point now{};
    int sleeps = 0;
    void SetUp() override { layer.addOutput("speakers", 48000); }
    std::string messageOf(const std::optional<std::string>& uid) {
        try {
            AudioInputDeviceConfigurator::setInputDevice(layer, uid,
                                                         {[this] { return now; },
                                                          [this](std::chrono::milliseconds d) {
                                                              now += d;
                                                              ++sleeps;
                                                          }});
        } catch (const AudioInputDeviceException& e) {
            return e.what();
        }
        return "";
    }
};

TEST_F(ConfiguratorTest, OnlyInputsOnThePlaybackClockAreSwitchedToItsRate) {
    using E = AudioInputDeviceError;
    const std::string mismatch = E{E::InputClockMismatch{44100, 48000}}.description();
    const std::string failed = "Failed to select audio input device (status 1852797029)";
    struct Case {
        const char* name;
        AudioClockTransport transport;
        double rate;
        std::vector<AudioSampleRateRange> ranges;
        std::string message;
        bool switched;
        int status = 0;
        bool settles = true;
        int sleeps = 0;
    };
    const Case cases[] = {
        {"USB Audio CODEC", T::usb, 44100, {}, "", false},
        {"Dock Input", T::thunderbolt, 44100, {{44100, 44100}, {47999.6, 47999.6}}, "", true},
        {"Dock Input", T::thunderbolt, 44100, {{44100, 44100}, {88200, 96000}}, mismatch, false},
        {"Microphone", T::builtIn, 47999.2, {}, "", false}, // within 1 Hz
        {"Studio Display", T::usb, 44100, {}, "", true},
        {"Microphone", T::builtIn, 44100, {}, mismatch, true, 0, false, 75}, // 1.5 s, 20 ms steps
        {"Microphone", T::builtIn, 44100, {}, failed, true, 1852797029},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        layer = test::FakeAudioDeviceLayer{};
        layer.addOutput("speakers", 48000);
        layer.addInput("in", c.name, c.transport, 2, c.rate);
        layer.ranges["in"] = c.ranges;
        layer.setRateStatus = c.status;
        layer.rateNeverSettles = !c.settles;
        sleeps = 0;
        EXPECT_EQ(messageOf("in"), c.message);
        EXPECT_EQ(layer.rateWrites.size(), c.switched ? 1u : 0u);
        EXPECT_EQ(sleeps, c.sleeps);
    }
    EXPECT_EQ(messageOf("gone"), "Audio input device not found (gone)");
}

TEST_F(ConfiguratorTest, TheDefaultInputIsAlignedButNotChosenAndStandsInForUnknownOnes) {
    layer.addInput("mic", "Microphone", T::builtIn, 1, 44100);
    layer.addInput("mute", "Dead", T::usb, 2, 0);
    layer.defaultInput = "mic";
    EXPECT_EQ(AudioInputDeviceConfigurator::setInputDevice(layer, std::nullopt), std::nullopt);
    EXPECT_EQ(layer.rates["mic"], 48000);
    EXPECT_EQ(AudioInputDeviceConfigurator::captureFormat(layer, "unknown"),
              (CaptureFormat{48000, 1}));
    EXPECT_EQ(AudioInputDeviceConfigurator::captureFormat(layer, "mute"), std::nullopt);
    layer.defaultInput.reset();
    EXPECT_EQ(messageOf(std::nullopt), "");
    EXPECT_EQ(AudioInputDeviceConfigurator::captureFormat(layer, std::nullopt), std::nullopt);
}

} // namespace
} // namespace kelvo
