#pragma once

#include "Cloud/DeviceTokenStore.h"
#include "Cloud/OfflineWorkspaceUIState.h"
#include "Show/ShowPatch.h"
#include "Support/CoalescingWorker.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QObject>
#include <QString>

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kelvo {

/// A cache file that could not be written or a record that could not be encoded. The
/// previous file is left as it was.
class OfflineCacheError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Everything needed to start the last show without the network, in the cache folder: the
/// harness, the show snapshot, the dashboard selections and the show patches. No network work
/// here; the small settings are BridgeSettings'.
class OfflineShowCache : public QObject {
    Q_OBJECT
public:
    static constexpr const char* cacheFolderName = "KelvoBridge";
    static constexpr const char* harnessFileName = "engine.js";
    static constexpr const char* manifestFileName = "manifest.json";
    static constexpr const char* showSnapshotFileName = "show_snapshot.json";
    static constexpr const char* workspaceFileName = "workspace_ui.json";
    static constexpr const char* patchesFolderName = "show_patches";

    /// `baseDirectory` overrides the cache folder (tests, the seeding tool).
    explicit OfflineShowCache(std::optional<QString> baseDirectory = std::nullopt,
                              QObject* parent = nullptr);

    // --- cache folder -------------------------------------------------------------------
    /// The cache folder, created with its parents; throws OfflineCacheError when it cannot be.
    QString supportDir() const;
    QString patchesDir() const;
    QString patchURL(std::string_view showId) const;
    /// Letters, digits (any script) and "-" kept, every other character "_", plus ".json".
    static QString patchFileName(std::string_view showId);

    /// Both the harness script and the show snapshot can be read.
    bool hasOfflineRuntime() const;

    void saveHarnessJS(QByteArrayView script, QByteArrayView manifest);
    std::optional<QByteArray> loadHarnessJS() const;
    std::optional<QByteArray> loadManifest() const;

    void saveShowSnapshot(QByteArrayView snapshot);
    std::optional<QByteArray> loadShowSnapshot() const;

    void saveWorkspaceUI(const OfflineWorkspaceUIState& state);
    /// Writes the workspace on the cache's worker thread, so the caller never waits on the
    /// disk; a state not yet written when a newer one comes is skipped. A failure is announced
    /// by workspaceSaveFailed.
    void saveWorkspaceUILater(const OfflineWorkspaceUIState& state);
    /// Waits until every workspace handed to saveWorkspaceUILater is on disk (at quit).
    void flushPendingWrites() { writer_.flush(); }
    /// Absent when the file is missing, unreadable or does not decode.
    std::optional<OfflineWorkspaceUIState> loadWorkspaceUI() const;

    void savePatch(const ShowPatch& patch);
    std::optional<ShowPatch> loadPatch(std::string_view showId) const;

signals:
    /// On the worker thread; connected receivers on the main thread get it queued.
    void workspaceSaveFailed(const QString& reason);

private:
    QString cacheFolderPath() const;
    QString pathInCache(const char* fileName) const;
    std::optional<QByteArray> readCacheFile(const char* fileName) const;

    std::optional<QString> baseDirectory_;
    mutable CoalescingWorker writer_; // last: finishes its writes before the rest goes
};

} // namespace kelvo
