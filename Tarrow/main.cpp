#include "App/ApplicationInfo.h"
#include "App/CommandLine.h"
#include "App/HeadlessBridge.h"
#include "App/OutputRelay.h"
#include "UI/TarrowApp.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QIcon>
#include <QSocketNotifier>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int signalPipe[2] = {-1, -1};

// Async-signal-safe: only hands the signal number to the event loop.
void forwardSignal(int signal) {
    const char byte = static_cast<char>(signal);
    [[maybe_unused]] const auto written = ::write(signalPipe[1], &byte, 1);
}

void nameApplication() {
    QCoreApplication::setOrganizationName(kelvo::organisationName);
    QCoreApplication::setApplicationName(kelvo::settingsApplicationName);
    QCoreApplication::setApplicationVersion(kelvo::applicationVersion);
}

/// Ctrl-C, SIGTERM and SIGHUP quit through the event loop, so capture stops and the cloud is
/// told.
std::unique_ptr<QSocketNotifier> quitOnSignals(QCoreApplication& app) {
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0) {
        std::perror("kelvo-bridge: socketpair");
        return nullptr;
    }
    auto notifier = std::make_unique<QSocketNotifier>(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, &app, [] {
        char byte = 0;
        [[maybe_unused]] const auto read = ::read(signalPipe[0], &byte, 1);
        QCoreApplication::quit();
    });
    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    // A closed terminal or SSH session ends the run the same way, recording finished.
    sigaction(SIGHUP, &action, nullptr);
    // Status lines piped into a program that exits must not end the show.
    std::signal(SIGPIPE, SIG_IGN);
    return notifier;
}

void quitAfter(const kelvo::LaunchOptions& options, QCoreApplication& app) {
    if (options.runSeconds)
        QTimer::singleShot(
            std::chrono::milliseconds(static_cast<long long>(*options.runSeconds * 1000)), &app,
            &QCoreApplication::quit);
}

bool hasDisplay() {
    return !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

int runHeadless(int argc, char** argv, const kelvo::LaunchOptions& options) {
    QCoreApplication app(argc, argv);
    nameApplication();
    if (options.signOut)
        return kelvo::HeadlessBridge::signOut(options);
    const auto signalWatch = quitOnSignals(app);
    if (!signalWatch)
        return 1;
    // Nor may a program that stops reading them stall it.
    const kelvo::OutputRelay relayedOut(STDOUT_FILENO);
    const kelvo::OutputRelay relayedErrors(STDERR_FILENO);
    kelvo::HeadlessBridge bridge(kelvo::HeadlessBridge::makeModel(options), options);
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &bridge,
                     [&bridge] { bridge.shutdown(); });
    quitAfter(options, app);
    bridge.start();
    const int status = app.exec();
    bridge.shutdown();
    return status;
}

int runWindow(int argc, char** argv, const kelvo::LaunchOptions& options) {
    QGuiApplication app(argc, argv);
    nameApplication();
    QGuiApplication::setApplicationDisplayName(kelvo::applicationName);
    QGuiApplication::setDesktopFileName(QStringLiteral("kelvo-bridge"));
    QGuiApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("kelvo-bridge")));
    const auto signalWatch = quitOnSignals(app);
    if (!signalWatch)
        return 1;
    const kelvo::OutputRelay relayedOut(STDOUT_FILENO);
    const kelvo::OutputRelay relayedErrors(STDERR_FILENO);
    std::unique_ptr<kelvo::AppModel> model = kelvo::HeadlessBridge::makeModel(options);
    kelvo::HeadlessBridge::persistLaunchSettings(model->outputSettingsStore(), options);
    // Taken whenever it is listed, until another is picked in the window.
    if (options.audioDeviceUID)
        model->audioSelection().preferAudioInputDevice(*options.audioDeviceUID);
    // Pairing asked for on the command line prints the page, as headless does (the approval may
    // come from a phone); pairing started from the window opens the browser.
    QObject::connect(model.get(), &kelvo::AppModel::pairingPageReady, &app,
                     [printPage = options.pairOnStart](const QUrl& page) {
                         if (!printPage) {
                             QDesktopServices::openUrl(page);
                             return;
                         }
                         std::printf("%s\n%s\n", kelvo::HeadlessBridge::approvalPagePrompt,
                                     page.toString().toUtf8().constData());
                         std::fflush(stdout);
                     });
    kelvo::TarrowApp window(std::move(model));
    if (!window.show())
        return 1;
    if (options.pairOnStart)
        window.model().startPairing();
    if (options.recordOnStart)
        window.model().toggleAudioRecording();
    quitAfter(options, app);
    return app.exec();
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv, argv + argc);
    const kelvo::LaunchParseResult parsed = kelvo::parseLaunchArguments(arguments);
    switch (parsed.action) {
    case kelvo::LaunchParseResult::Action::showHelp:
    case kelvo::LaunchParseResult::Action::showVersion:
        std::printf("%s\n", parsed.message.c_str());
        return 0;
    case kelvo::LaunchParseResult::Action::fail:
        std::fprintf(stderr, "%s\n", parsed.message.c_str());
        return 2;
    case kelvo::LaunchParseResult::Action::run:
        break;
    }
    // --headless, --sign-out and a machine without a display never create a GUI application.
    if (parsed.options.headless || parsed.options.signOut)
        return runHeadless(argc, argv, parsed.options);
    if (!hasDisplay()) {
        std::fprintf(stderr, "No display found; running headless (--headless says so).\n");
        return runHeadless(argc, argv, parsed.options);
    }
    return runWindow(argc, argv, parsed.options);
}
