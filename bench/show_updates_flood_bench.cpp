// Memory of a linked bridge under a flood of show-update messages: a kelvo-devcloud on loopback
// pushes control states, show changes, snapshots, drops, shifts and malformed frames as fast as
// its admin API takes them, while the engine loop runs at 60 Hz on a tone. Prints the resident
// set size at the start of the flood and every tenth of the run; it must stay flat.
//   build/bench/show_updates_flood_bench [--minutes M] [--only TYPE,TYPE…]
//   (M defaults to 0.5, 10 for the long run; --only pushes just those message types, "text" for
//   the malformed frames; builds kelvo-devcloud with it)
#include "CloudBenchRig.h"
#include "DMX/NWUDPSocket.h"
#include "support/DevCloudProcess.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTemporaryDir>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

using namespace kelvo;
using namespace kelvo::bench;
using json = nlohmann::json;

namespace {

const char* const token = "bench-token";
const char* const secret = "bench-secret";

long residentKilobytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stol(line.substr(6));
    return -1;
}

/// The pushes of one round, every kind the bridge acts on and a few it must drop.
std::vector<json> floodRound(int round, const json& snapshot) {
    const char* modes[] = {"pulse", "cycle", "party"};
    return {
        {{"type", "control_state"},
         {"data", {{"mode", modes[round % 3]}, {"mode_lerp", (round % 10) / 10.0}}}},
        {{"type", "control_state"}, {"data", {{"theme_name", round % 2 ? "Ocean" : "Sunset"}}}},
        {{"type", "show_changed"}, {"data", {{"revision", round}}}},
        {{"type", "force_drop"}, {"data", {{"active", round % 2 == 0}}}},
        {{"type", "shift_lighting_only"}, {"data", json::object()}},
        {{"type", "shift_color_scheme"}, {"data", json::object()}},
        {{"type", "show_snapshot"}, {"data", snapshot}},
        {{"text", "[]"}},
        {{"text", "{\"type\":\"control_state\",\"data\":"}},
        {{"type", "something_new"}, {"data", std::string(2000, 'x')}},
    };
}

} // namespace

int main(int argc, char** argv) {
    QTemporaryDir home;
    useBenchHome(home.path());
    QCoreApplication app(argc, argv);
    nameBenchApplication();
    double minutes = 0.5;
    std::string only; // comma-separated message types, "text" for the raw frames; empty: all
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::string(argv[i]) == "--minutes")
            minutes = std::max(0.05, std::atof(argv[i + 1]));
        if (std::string(argv[i]) == "--only")
            only = std::string(",").append(argv[i + 1]).append(",");
    }
    const QString tone = home.path() + "/tone.wav";
    writeTone(tone);

    const test::DevCloudProcess cloud(KELVO_DEVCLOUD,
                                      {"--state", (home.path() + "/cloud.json").toStdString(),
                                       "--device-token", token, "--admin-secret", secret},
                                      (home.path() + "/cloud.log").toStdString());
    const QString server = QString::fromStdString(cloud.baseUrl());
    if (!cloud.running()) {
        std::fprintf(stderr, "kelvo-devcloud did not start\n");
        return 1;
    }
    AppModelEnvironment environment =
        cloudBenchEnvironment(server, tone, std::make_shared<NWUDPSocket>());
    environment.settings->saveAuthToken(token, QUrl(server));
    AppModel model(std::move(environment));
    model.setArtNetEnabled(false); // nothing leaves the machine
    model.bootstrap();
    model.setArtNetEnabled(false);
    model.autoConnect();
    model.setInterpretationScreenVisible(true);
    if (!waitFor([&] { return model.connectionStatus() == ConnectionStatus::connected; })) {
        std::fprintf(stderr, "the bridge did not connect: %s\n",
                     model.statusMessage().toUtf8().constData());
        return 1;
    }

    QNetworkAccessManager network;
    const auto call = [&](const QByteArray& method, const QString& path, const QByteArray& body) {
        QNetworkRequest request(QUrl(server + "/" + path));
        request.setRawHeader("X-Kelvo-Admin", secret);
        request.setRawHeader("Authorization", QByteArray("Bearer ") + token);
        request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
        return network.sendCustomRequest(request, method, body);
    };
    json snapshot;
    {
        QNetworkReply* reply = call("GET", "api/shows/show-demo", {});
        waitFor([&] { return reply->isFinished(); });
        snapshot = json::parse(reply->readAll().toStdString(), nullptr, false);
        reply->deleteLater();
    }

    // Warm-up: a first round of everything, so one-off allocations are behind us.
    const auto pushRound = [&](int round, int& inFlight, long& pushed) {
        for (const json& message : floodRound(round, snapshot)) {
            const std::string type = message.value("type", std::string("text"));
            if (!only.empty() && only.find("," + type + ",") == std::string::npos)
                continue;
            QNetworkReply* reply =
                call("POST", "api/admin/push", QByteArray::fromStdString(message.dump()));
            ++inFlight;
            QObject::connect(reply, &QNetworkReply::finished, [reply, &inFlight, &pushed] {
                --inFlight;
                ++pushed;
                reply->deleteLater();
            });
        }
    };
    int inFlight = 0;
    long pushed = 0;
    for (int round = 0; round < 20; ++round) {
        pushRound(round, inFlight, pushed);
        waitFor([&] { return inFlight == 0; });
    }
    waitFor([] { return false; }, 2000);

    const long startKB = residentKilobytes();
    std::printf("flood of %.2f min; RSS at start %ld kB\n", minutes, startKB);
    QElapsedTimer clock;
    clock.start();
    const qint64 total = qint64(minutes * 60'000);
    qint64 nextReport = total / 10;
    long peakKB = startKB;
    int round = 20;
    while (clock.elapsed() < total) {
        // At most two rounds in flight: the cloud sends as fast as it is asked.
        if (inFlight < 20)
            pushRound(round++, inFlight, pushed);
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        if (clock.elapsed() >= nextReport) {
            const long kb = residentKilobytes();
            peakKB = std::max(peakKB, kb);
            std::printf("  %5.1f min: RSS %ld kB, %ld messages pushed, %llu ticks\n",
                        clock.elapsed() / 60000.0, kb, pushed,
                        static_cast<unsigned long long>(model.tickCount()));
            std::fflush(stdout);
            nextReport += total / 10;
        }
    }
    waitFor([&] { return inFlight == 0; });
    waitFor([] { return false; }, 2000);
    const long endKB = residentKilobytes();
    std::printf("RSS at end %ld kB (start %ld kB, peak %ld kB, %+ld kB); %ld messages, %.0f/s; "
                "still connected: %s\n",
                endKB, startKB, peakKB, endKB - startKB, pushed, pushed / (total / 1000.0),
                model.connectionStatus() == ConnectionStatus::connected ? "yes" : "no");
    model.applicationWillTerminate();
    return 0;
}
