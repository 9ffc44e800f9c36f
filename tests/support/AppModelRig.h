#pragma once

#include "Audio/Devices/FakeAudioDeviceLayer.h"
#include "DMX/FakeArtNetDiscovery.h"
#include "DMX/OutputFakes.h"
#include "Engine/AppModel.h"
#include "support/FakeAudioInput.h"
#include "support/FakeTimers.h"
#include "support/RecordingHarness.h"
#include "support/TemporaryDirectory.h"

namespace kelvo::test {

/// A microphone permission the test answers by hand.
class ScriptedMicrophone final : public MicrophoneAuthorization {
public:
    MicrophoneAuthorizationStatus answerStatus = MicrophoneAuthorizationStatus::authorized;
    int requests = 0;
    std::function<void(bool)> pending;
    MicrophoneAuthorizationStatus status() const override { return answerStatus; }
    void requestAccess(std::function<void(bool)> answer) override {
        ++requests;
        pending = std::move(answer);
    }
};

/// An AppModel with every platform part faked: cache and settings in a temporary folder, capture
/// from a fake backend, Art-Net recorded, no widget, timers and clock moved by the test.
struct AppModelRig {
    QString settingsPath() const { return QString::fromStdString(dir / "settings.ini"); }

    std::unique_ptr<OfflineShowCache> makeCache() const {
        return std::make_unique<OfflineShowCache>(QString::fromStdString(dir / "cache"));
    }

    std::unique_ptr<AppModel> makeModel(std::shared_ptr<AudioDeviceLayer> devices = nullptr) {
        AppModelEnvironment environment;
        environment.settings = std::make_unique<BridgeSettings>(
            std::make_unique<QSettings>(settingsPath(), QSettings::IniFormat),
            QUrl("https://cloud.example"));
        environment.cache = makeCache();
        environment.audio.deviceLayer =
            devices ? std::move(devices) : std::make_shared<EmptyAudioDeviceLayer>();
        environment.audio.backend = backend;
        environment.artnetTransport = transport;
        environment.artnetTransportStatus = [] { return test::readyTransport(); };
        environment.artnetDiscovery = discovery;
        environment.enttec = EnttecSerialSender([](const std::string&) { return nullptr; },
                                                [] { return std::vector<std::string>{}; });
        environment.microphone = microphone;
        environment.timers = timers;
        environment.clock = std::make_shared<ManualMonotonicClock>();
        environment.runTickTimer = false;
        environment.serverURL = serverURL;
        environment.http = http;
        environment.leaving = leaving;
        environment.recordingDirectory = dir / "Downloads";
        return std::make_unique<AppModel>(std::move(environment));
    }

    /// Caches the recording harness and, when asked, a show whose step lights universe 1.
    void seedCache(bool withSnapshot = true) const {
        auto cache = makeCache();
        cache->saveHarnessJS(QByteArray::fromStdString(testHarness()), "{}");
        if (withSnapshot)
            cache->saveShowSnapshot(
                R"({"name": "Cached", "result": {"dmx": {"1": [10, 20, 30]}}})");
    }

    TemporaryDirectory dir;
    std::shared_ptr<FakeAudioBackend> backend = std::make_shared<FakeAudioBackend>();
    std::shared_ptr<test::RecordingTransport> transport =
        std::make_shared<test::RecordingTransport>();
    std::shared_ptr<test::FakeArtNetDiscovery> discovery =
        std::make_shared<test::FakeArtNetDiscovery>();
    std::shared_ptr<ScriptedMicrophone> microphone = std::make_shared<ScriptedMicrophone>();
    std::shared_ptr<test::FakeTimerFactory> timers = std::make_shared<test::FakeTimerFactory>();
    // The cloud link: none unless a test gives it a transport (and then only to loopback).
    QUrl serverURL = BridgeServerConfig::productionURL();
    std::shared_ptr<URLRequestPerforming> http;
    std::shared_ptr<DisconnectNotifying> leaving;
};

} // namespace kelvo::test
