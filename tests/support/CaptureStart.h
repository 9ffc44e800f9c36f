#pragma once

#include "Audio/Capture/MicCapture.h"
#include "support/QtEventLoop.h"

#include <optional>
#include <string>

namespace kelvo::test {

/// Starts capture and waits for the outcome, however the backend reports it: nothing when
/// capture runs, else the reason it gave.
inline std::optional<std::string> startCapture(MicCapture& capture,
                                               const std::optional<std::string>& uid) {
    std::optional<std::string> failure;
    const QObject listening; // disconnects when it goes
    QObject::connect(&capture, &MicCapture::startFailed, &listening,
                     [&failure](const QString& reason) { failure = reason.toStdString(); });
    try {
        capture.start(uid);
        pumpUntil([&] { return capture.isCapturing() || failure.has_value(); },
                  std::chrono::seconds(15));
    } catch (const AudioInputException& e) {
        failure = e.what();
    }
    if (!failure && !capture.isCapturing())
        failure = "capture neither started nor failed";
    return failure;
}

} // namespace kelvo::test
