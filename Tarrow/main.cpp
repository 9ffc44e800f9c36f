#include "App/ApplicationInfo.h"
#include "App/CommandLine.h"
#include "App/HeadlessBridge.h"
#include "App/OutputRelay.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int signalPipe[2] = {-1, -1};

// Async-signal-safe: only hands the signal number to the event loop.
void forwardSignal(int signal) {
    const char byte = static_cast<char>(signal);
    [[maybe_unused]] const auto written = ::write(signalPipe[1], &byte, 1);
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

    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(kelvo::organisationName);
    QCoreApplication::setApplicationName(kelvo::settingsApplicationName);
    QCoreApplication::setApplicationVersion(kelvo::applicationVersion);

    if (parsed.options.signOut)
        return kelvo::HeadlessBridge::signOut(parsed.options);

    if (!parsed.options.headless)
        std::fprintf(stderr, "This build has no dashboard window yet; running headless.\n");

    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0) {
        std::perror("kelvo-bridge: socketpair");
        return 1;
    }
    QSocketNotifier signalNotifier(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, &app, [] {
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
    // Status lines piped into a program that exits must not end the show, nor a program that
    // stops reading them stall it.
    std::signal(SIGPIPE, SIG_IGN);
    const kelvo::OutputRelay relayedOut(STDOUT_FILENO);
    const kelvo::OutputRelay relayedErrors(STDERR_FILENO);

    kelvo::HeadlessBridge bridge(kelvo::HeadlessBridge::makeModel(parsed.options), parsed.options);
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &bridge,
                     [&bridge] { bridge.shutdown(); });
    if (parsed.options.runSeconds)
        QTimer::singleShot(
            std::chrono::milliseconds(static_cast<long long>(*parsed.options.runSeconds * 1000)),
            &app, &QCoreApplication::quit);
    bridge.start();
    const int status = app.exec();
    bridge.shutdown();
    return status;
}
