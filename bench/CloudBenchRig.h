#pragma once

// What the cloud benchmarks share: a tone for the audio input, the event loop run without
// sleeping, and a bridge environment linked to a dev cloud with the user's own settings.
#include "App/ApplicationInfo.h"
#include "Cloud/DisconnectNotifier.h"
#include "Cloud/QtURLSession.h"
#include "Engine/AppModel.h"
#include "testmusic/WavWriter.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cmath>
#include <functional>
#include <vector>

namespace kelvo::bench {

/// Points the bridge's settings and cache at `home`, so a benchmark never touches the user's own.
/// Call before the application object exists; names the application as the bridge does.
inline void useBenchHome(const QString& home) {
    qputenv("XDG_DATA_HOME", (home + "/data").toUtf8());
    qputenv("XDG_CONFIG_HOME", (home + "/config").toUtf8());
}

inline void nameBenchApplication() {
    QCoreApplication::setOrganizationName(organisationName);
    QCoreApplication::setApplicationName(settingsApplicationName);
}

/// Ten seconds of a quiet 100 Hz tone, mono 44.1 kHz.
inline void writeTone(const QString& path) {
    std::vector<float> samples(441000);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = float(3000.0 / 32768 * std::sin(i * 2 * M_PI * 100 / 44100));
    test::writeMonoWav(path.toStdString(), samples, 44100);
}

/// Runs the event loop without sleeping (a sleep would show as timer lateness) until `done`
/// holds or `milliseconds` pass; returns `done()`.
inline bool waitFor(const std::function<bool()>& done, int milliseconds = 20000) {
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < milliseconds)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    return done();
}

/// A bridge in the user's own settings and cache, on the tone, linked to `server`.
inline AppModelEnvironment cloudBenchEnvironment(const QString& server, const QString& tone,
                                                 std::shared_ptr<UDPSending> artnet) {
    AppModelEnvironment environment;
    environment.settings = std::make_unique<BridgeSettings>(BridgeSettings::openUserSettings(),
                                                            BridgeServerConfig::productionURL());
    environment.cache = std::make_unique<OfflineShowCache>();
    environment.audio = AudioInputPlatform::make(tone.toStdString());
    environment.artnetTransport = std::move(artnet);
    environment.serverURL = QUrl(server);
    environment.http = std::make_shared<QtURLSession>();
    environment.leaving = std::make_shared<ThreadedDisconnectNotifier>();
    return environment;
}

} // namespace kelvo::bench
