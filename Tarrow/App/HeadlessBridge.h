#pragma once

#include "App/BridgeStatusLine.h"
#include "App/CommandLine.h"
#include "Engine/AppModel.h"

#include <QObject>
#include <QTimer>

#include <cstdio>
#include <memory>

namespace kelvo {

/// The bridge without a window: applies the launch options, starts the model from the cache and
/// prints one status line a second until asked to quit.
class HeadlessBridge : public QObject {
    Q_OBJECT
public:
    HeadlessBridge(std::unique_ptr<AppModel> model, LaunchOptions options, std::FILE* out = stdout,
                   QObject* parent = nullptr);

    void start();
    /// Closes the recording and stops capture; safe to call twice.
    void shutdown();
    AppModel& model() { return *model_; }

    /// Builds the model on the running system: user settings and cache, PulseAudio or the
    /// audio file, a UDP socket for Art-Net, the serial widget.
    static std::unique_ptr<AppModel> makeModel(const LaunchOptions& options);
    /// Writes the command-line output settings under the dashboard's settings keys, from where
    /// start-up loads them.
    static void persistLaunchSettings(OutputSettingsStore& settings, const LaunchOptions& options);
    /// `--sign-out`: tells the server the bridge leaves (at most 2 s), forgets its token and
    /// says so; the exit status.
    static int signOut(const LaunchOptions& options, std::FILE* out = stdout);

    static constexpr const char* approvalPagePrompt =
        "Open this page on any device to approve the bridge:";
    /// Lines lost because the output was not being read; given before the next line that fits.
    static constexpr const char* linesLostNote =
        "(lines not shown while the output was not being read: %llu)";

    /// Lines that did not fit into the output so far.
    unsigned long long linesLost() const { return linesLost_; }

private:
    void printStatus();
    /// Never waits for the output: a line that does not fit is counted and dropped.
    void printLine(const std::string& line);
    void chooseAudioDevice(const std::string& uid);

    std::unique_ptr<AppModel> model_;
    LaunchOptions options_;
    std::FILE* out_;
    QTimer statusTimer_;
    MonotonicClock::Duration lastStatusTime_{};
    AppStatusSnapshot lastStatus_;
    bool printedStatusYet_ = false;
    bool stopped_ = false;
    unsigned long long linesLost_ = 0;
    // Waits for the first device list to judge --audio-device.
    QMetaObject::Connection pendingDevice_;
};

} // namespace kelvo
