// From a mode picked on the dev cloud's control page (headless Chromium) to the first ArtDmx on
// the wire that shows it: page script, control-state POST, the cloud's push, the bridge's socket,
// the next 60 Hz tick, the UDP send. The bridge alternates between a wash and a blackout, so
// "shows it" is lit or dark; ArtDmx goes to a loopback receiver's own port.
//   build/bench/control_page_latency_bench [CHANGES]   (needs build/devcloud/kelvo-devcloud
//                                                        and /usr/bin/chromium)
#include "Cloud/DisconnectNotifier.h"
#include "Cloud/QtURLSession.h"
#include "DMX/NWUDPSocket.h"
#include "Engine/AppModel.h"
#include "support/DevCloudProcess.h"
#include "support/HeadlessBrowser.h"
#include "support/LoopbackReceiver.h"
#include "support/QtEventLoop.h"
#include "support/TemporaryDirectory.h"

#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>

using namespace kelvo;
using namespace std::chrono_literals;

namespace {

/// Art-Net aimed at the receiver's own port.
class LoopbackArtNet final : public UDPSending {
public:
    explicit LoopbackArtNet(std::uint16_t port) : port_(port) {}
    void send(std::span<const std::uint8_t> datagram, const std::string& host,
              std::uint16_t) override {
        socket_.send(datagram, host, port_);
    }

private:
    std::uint16_t port_;
    NWUDPSocket socket_;
};

/// Lit or dark, for an ArtDmx of port-address 0; nothing for any other datagram.
std::optional<bool> universeZeroLit(const std::vector<std::uint8_t>& d) {
    if (d.size() < 18 ||
        std::string_view(reinterpret_cast<const char*>(d.data()), 8) !=
            std::string_view("Art-Net\0", 8) ||
        d[8] != 0x00 || d[9] != 0x50 || d[14] != 0 || d[15] != 0)
        return std::nullopt;
    return std::any_of(d.begin() + 18, d.end(), [](std::uint8_t v) { return v > 0; });
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, std::size_t(p * double(values.size())))];
}

} // namespace

int main(int argc, char** argv) {
    const int changes = argc > 1 ? std::atoi(argv[1]) : 100;
    test::qtApplication();
    test::TemporaryDirectory dir;
    const std::string token = "bench-token";
    test::DevCloudProcess cloud(KELVO_DEVCLOUD,
                                {"--state", dir / "cloud-state.json", "--device-token", token},
                                dir / "cloud.log");
    if (!cloud.running()) {
        std::fprintf(stderr, "kelvo-devcloud did not start\n%s", cloud.output().c_str());
        return 1;
    }
    test::LoopbackReceiver node;

    AppModelEnvironment environment;
    const QUrl server(QString::fromStdString(cloud.baseUrl()));
    environment.settings = std::make_unique<BridgeSettings>(
        std::make_unique<QSettings>(QString::fromStdString(dir / "settings.ini"),
                                    QSettings::IniFormat),
        server);
    environment.cache = std::make_unique<OfflineShowCache>(QString::fromStdString(dir / "cache"));
    environment.audio = AudioInputPlatform::make(std::nullopt);
    environment.artnetTransport = std::make_shared<LoopbackArtNet>(node.port());
    environment.serverURL = server;
    environment.http = std::make_shared<QtURLSession>();
    environment.leaving = std::make_shared<ThreadedDisconnectNotifier>();
    AppModel model(std::move(environment));
    model.settings().saveAuthToken(token, server);
    model.bootstrap();
    model.setArtNetEnabled(true);
    model.setArtNetHost(QStringLiteral("127.0.0.1"));
    model.replaceRoutes({{1, UniverseRoute::Destination::artnet(0)}});
    model.autoConnect();
    if (!test::pumpUntil(
            [&] {
                return model.connectionStatus() == ConnectionStatus::connected &&
                       model.showUpdatesChannel()->isOpen();
            },
            20s)) {
        std::fprintf(stderr, "the bridge did not link: %s\n",
                     model.statusMessage().toStdString().c_str());
        return 1;
    }

    test::HeadlessBrowser browser(dir / "chromium-profile");
    if (!browser.attach()) {
        std::fprintf(stderr, "chromium did not start\n");
        return 1;
    }
    browser.open(QUrl(QString::fromStdString(cloud.baseUrl() + "/control")));
    browser.waitUntil(
        QStringLiteral("!!document.querySelector('#mode option[value=\"blackout\"]')"));

    std::vector<double> latencies, applied;
    int missed = 0;
    QElapsedTimer clicked;
    // The part before the tick: the page, the cloud and the socket, up to the model.
    QObject::connect(&model, &AppModel::selectedModeIdChanged,
                     [&] { applied.push_back(double(clicked.nsecsElapsed()) / 1e6); });
    for (int i = 0; i < changes + 1; ++i) {
        const bool lit = i % 2 == 0;
        test::pumpFor(100ms);
        while (node.receive(0)) {
        }
        clicked.start();
        if (i == 1)
            applied.clear();
        browser.evaluate(QStringLiteral("(() => { const s = document.getElementById('mode'); "
                                        "s.value = '%1'; s.dispatchEvent(new Event('change')); "
                                        "return true; })()")
                             .arg(lit ? QLatin1String("static") : QLatin1String("blackout")));
        bool seen = false;
        while (!seen && clicked.elapsed() < 3000) {
            while (const auto datagram = node.receive(0))
                if (universeZeroLit(*datagram) == lit)
                    seen = true;
            if (!seen)
                QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        }
        if (i == 0)
            continue; // the first only sets the scene
        if (seen)
            latencies.push_back(double(clicked.nsecsElapsed()) / 1e6);
        else
            ++missed;
    }
    if (latencies.empty()) {
        std::fprintf(stderr, "no change reached the wire\n");
        return 1;
    }
    std::printf("control page click to changed ArtDmx over %zu changes (%d missed): "
                "p50 %.1f ms, p95 %.1f ms, max %.1f ms\n",
                latencies.size(), missed, percentile(latencies, 0.5), percentile(latencies, 0.95),
                *std::max_element(latencies.begin(), latencies.end()));
    if (!applied.empty())
        std::printf("of which click to the model's new mode: p50 %.1f ms, p95 %.1f ms\n",
                    percentile(applied, 0.5), percentile(applied, 0.95));
    return missed == 0 ? 0 : 1;
}
