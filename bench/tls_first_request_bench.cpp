// The main thread's share of the first secure request a fresh bridge makes: QtURLSession made
// as the headless bridge makes it at start-up, then, after a delay, an https request to a
// loopback port that refuses. Each run is a fresh process (the TLS backend loads once per
// process); `--raw` sends the same request with a bare QNetworkAccessManager, as Qt does it
// without the warm-up. Reports the request call's processor time, the main thread's processor
// time until the answer (the probe's own left out), the longest main-thread slice (a 1 ms
// precise timer's lateness, which includes the thread waiting for a core) and the time to the
// answer.

#include "Cloud/QtURLSession.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QTcpServer>
#include <QTimer>

#include <QCoro/QCoroTask>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace {

double processorMs() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

double wallMs() {
    return std::chrono::duration<double, std::milli>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

quint16 refusingLoopbackPort() {
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    return server.serverPort(); // closed when it goes: connecting there is refused
}

int runOnce(bool raw, int delayMs) {
    const QUrl url(QStringLiteral("https://127.0.0.1:%1/api/health").arg(refusingLoopbackPort()));
    std::optional<kelvo::QtURLSession> session; // made only when measured: it warms the backend up
    if (!raw)
        session.emplace();
    QNetworkAccessManager bare;
    double callCpu = 0, started = 0, startedCpu = 0, probeCpu = 0, longestLate = 0;
    QTimer probe;
    probe.setTimerType(Qt::PreciseTimer);
    probe.setInterval(1);
    double lastProbe = wallMs();
    QObject::connect(&probe, &QTimer::timeout, [&] {
        const double cpu = processorMs();
        const double now = wallMs();
        longestLate = std::max(longestLate, now - lastProbe - 1.0);
        lastProbe = now;
        probeCpu += processorMs() - cpu;
    });
    const auto done = [&] {
        std::printf("%.3f %.3f %.3f %.3f\n", callCpu, longestLate, wallMs() - started,
                    processorMs() - startedCpu - probeCpu);
        QCoreApplication::quit();
    };
    QTimer::singleShot(delayMs, [&] {
        probe.start();
        lastProbe = started = wallMs();
        const double before = startedCpu = processorMs();
        if (raw) {
            QNetworkReply* reply = bare.get(QNetworkRequest(url));
            callCpu = processorMs() - before;
            QObject::connect(reply, &QNetworkReply::finished, done);
            return;
        }
        kelvo::HTTPRequest request;
        request.url = url;
        request.timeout = std::chrono::seconds(5);
        [](kelvo::QtURLSession& s, kelvo::HTTPRequest r, auto finished) -> QCoro::Task<> {
            try {
                QCoro::Task<kelvo::HTTPResponse> reply = s.data(std::move(r), {});
                co_await std::move(reply);
            } catch (const std::exception&) {
            }
            finished();
        }(*session, request, done);
        callCpu = processorMs() - before;
    });
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() > 2 && args[1] == "--once")
        return runOnce(args.contains("--raw"), args[2].toInt());

    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    for (const bool raw : {true, false})
        for (const int delay : {0, 25}) {
            std::vector<double> call, late, answer, mainCpu;
            for (int i = 0; i < runs; ++i) {
                QProcess child;
                QStringList childArgs{"--once", QString::number(delay)};
                if (raw)
                    childArgs << "--raw";
                child.start(app.applicationFilePath(), childArgs);
                child.waitForFinished(10000);
                double c = 0, l = 0, a = 0, m = 0;
                if (std::sscanf(child.readAllStandardOutput().constData(), "%lf %lf %lf %lf", &c,
                                &l, &a, &m) == 4) {
                    mainCpu.push_back(m);
                    call.push_back(c);
                    late.push_back(l);
                    answer.push_back(a);
                }
            }
            const auto range = [](std::vector<double> v) {
                std::sort(v.begin(), v.end());
                return v.empty() ? std::string("-")
                                 : std::to_string(v.front()).substr(0, 5) + "–" +
                                       std::to_string(v.back()).substr(0, 5);
            };
            std::printf("%s, request %2d ms after start-up: request call %s ms processor time, "
                        "main thread until the answer %s ms, longest main-thread slice %s ms, "
                        "answer after %s ms "
                        "(%zu runs)\n",
                        raw ? "bare QNetworkAccessManager" : "QtURLSession              ", delay,
                        range(call).c_str(), range(mainCpu).c_str(), range(late).c_str(),
                        range(answer).c_str(), call.size());
        }
    return 0;
}
