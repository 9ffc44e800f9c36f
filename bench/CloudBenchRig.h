#pragma once

// What the cloud benchmarks share: a tone for the audio input, a kelvo-devcloud beside the
// benchmark program, and a bridge environment pointed at it with the user's own settings.
#include "Cloud/DisconnectNotifier.h"
#include "Cloud/QtURLSession.h"
#include "Engine/AppModel.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>

namespace kelvo::bench {

/// Ten seconds of a quiet 100 Hz tone, 16-bit mono 44.1 kHz.
inline void writeTone(const QString& path) {
    const std::uint32_t frames = 441000, bytes = frames * 2;
    std::ofstream out(path.toStdString(), std::ios::binary);
    const auto u32 = [&](std::uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
    const auto u16 = [&](std::uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
    out.write("RIFF", 4), u32(36 + bytes), out.write("WAVEfmt ", 8), u32(16), u16(1), u16(1);
    u32(44100), u32(88200), u16(2), u16(16), out.write("data", 4), u32(bytes);
    for (std::uint32_t i = 0; i < frames; ++i)
        u16(std::uint16_t(std::int16_t(3000 * std::sin(i * 2 * M_PI * 100 / 44100))));
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

/// build/devcloud/kelvo-devcloud on a free loopback port, stopped when this goes.
class DevCloud {
public:
    /// `options` come after the listening address; pass --state inside a temporary folder.
    explicit DevCloud(const QStringList& options) {
        process_.setProcessChannelMode(QProcess::MergedChannels);
        process_.start(QCoreApplication::applicationDirPath() + "/../devcloud/kelvo-devcloud",
                       QStringList{"--listen", "127.0.0.1:0"} + options);
        waitFor([&] {
            const QString line = QString::fromUtf8(process_.readLine()).trimmed();
            if (line.startsWith("listening on "))
                server_ = line.mid(13).section(' ', 0, 0);
            return !server_.isEmpty();
        });
        if (server_.isEmpty())
            std::fprintf(stderr, "kelvo-devcloud did not start\n");
        // Its log is not read again: let it go to nowhere rather than fill a pipe.
        QObject::connect(&process_, &QProcess::readyRead, [this] { process_.readAll(); });
    }
    ~DevCloud() {
        process_.terminate();
        process_.waitForFinished(3000);
    }
    DevCloud(const DevCloud&) = delete;
    DevCloud& operator=(const DevCloud&) = delete;

    /// "http://127.0.0.1:PORT"; empty when it did not start.
    const QString& server() const { return server_; }

private:
    QProcess process_;
    QString server_;
};

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
