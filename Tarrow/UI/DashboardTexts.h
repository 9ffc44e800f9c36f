#pragma once

#include "Audio/Recording/AudioRecordingController.h"
#include "Cloud/AppUpdateNotice.h"
#include "Show/ShowPatch.h"

#include <QObject>
#include <QString>

namespace kelvo {

/// The operator-facing texts the dashboard shows, for QML as the `Texts` singleton of
/// "Kelvo.Model". Texts owned by another subsystem are taken from there; the dashboard's own
/// are written here once.
class DashboardTexts : public QObject {
    Q_OBJECT
#define KELVO_TEXT(name, value)                                                                    \
    Q_PROPERTY(QString name READ name CONSTANT)                                                    \
public:                                                                                            \
    static QString name() {                                                                        \
        return QString::fromUtf8(value);                                                           \
    }                                                                                              \
                                                                                                   \
private:
    // Update banner
    KELVO_TEXT(appOutOfDate, AppUpdateNotice::outOfDateText)
    KELVO_TEXT(downloadNewerVersion, AppUpdateNotice::downloadButtonText)
    // Recording tile
    KELVO_TEXT(recordHelp, AudioRecordingController::startHelpText)
    KELVO_TEXT(stopRecordingHelp, AudioRecordingController::stopHelpText)
    // Drop
    KELVO_TEXT(holdToForceDrop, "Hold to force drop")
    KELVO_TEXT(holdToForceDropHelp, "Hold to force the drop signal high")
    KELVO_TEXT(openDropDiagnosticsHelp, "Open drop detector diagnostics")
    KELVO_TEXT(dropDiagnosticsTitle, "Drop Diagnostics")
    KELVO_TEXT(dropDiagnosticsAccessibleName, "Drop detector diagnostics")
    KELVO_TEXT(recentAutomaticDrops, "Recent automatic drops")
    KELVO_TEXT(noDropsDetectedYet, "No drops detected yet")
    KELVO_TEXT(dropRuleExplanation,
               "A drop arms after the bass stays out for about eight seconds, then fires when it "
               "returns. The first thirty seconds never arm. Times are from the start of this "
               "audio stream. Manual holds aren’t counted.")
    // Connections, desk, stage and interpretation screens
    KELVO_TEXT(logIn, "Log In")
    KELVO_TEXT(signOut, "Sign out of cloud")
    KELVO_TEXT(editShowInBrowser, "Edit Show in Browser")
    KELVO_TEXT(enableArtNet, "Enable Art-Net output")
    KELVO_TEXT(artnetHostLabel, "Send to")
    KELVO_TEXT(artnetAutoFixLabel, "Fix Art-Net problems automatically")
    KELVO_TEXT(enableEnttec, "Enable Enttec Pro output")
    KELVO_TEXT(enttecOnDescription,
               "Scans FTDI serial devices and sends Enttec USB DMX Pro Widget API frames when a "
               "mapped universe is active.")
    KELVO_TEXT(enttecOffDescription, "Enttec device scanning and serial output are disabled.")
    KELVO_TEXT(viewCurrentInterpretation, "View current interpretation")
    KELVO_TEXT(patchOverlap, patchOverlapText)
    KELVO_TEXT(noArtNetNodes, "No nodes have answered yet.")
#undef KELVO_TEXT

public:
    using QObject::QObject;
};

} // namespace kelvo
