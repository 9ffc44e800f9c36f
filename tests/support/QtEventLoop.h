#pragma once

#include <QCoreApplication>
#include <QEventLoop>

#include <chrono>
#include <functional>
#include <thread>

namespace kelvo::test {

/// The process's QCoreApplication, created on first use (tests run on the main thread).
inline QCoreApplication& qtApplication() {
    static int argc = 1;
    static char name[] = "kelvo-tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = QCoreApplication::instance() ? QCoreApplication::instance()
                                                                : new QCoreApplication(argc, argv);
    return *app;
}

/// Runs the event loop until `done` holds or `timeout` passes; returns `done()`.
inline bool pumpUntil(const std::function<bool()>& done,
                      std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    qtApplication();
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Runs the event loop for `duration`.
inline void pumpFor(std::chrono::milliseconds duration) {
    pumpUntil([] { return false; }, duration);
}

} // namespace kelvo::test
