#pragma once

#include "Cloud/BridgeAPIClient.h"
#include "Cloud/SlottedWork.h"
#include "Engine/HarnessLoader.h"
#include "Show/ShowOptions.h"
#include "Show/ShowPatch.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kelvo {

class CacheWriter;
class EngineHost;
class OfflineShowCache;
class TickSlots;

/// What the full download changes in its owner, on the main thread.
class ShowDownloadTarget {
public:
    virtual ~ShowDownloadTarget() = default;
    /// Applies a bootstrap document already parsed as an object; its show may take a few ticks.
    virtual QCoro::Task<> applyParsedBootstrap(nlohmann::json bootstrap,
                                               CancellationToken cancel) = 0;
    virtual void recordShowPatch(const ShowPatch& patch) = 0;
    virtual const std::vector<ThemeOption>& currentThemes() const = 0;
    /// Replaces the themes and pushes them to the engine.
    virtual void replaceThemes(std::vector<ThemeOption> themes) = 0;
    /// Persists the workspace, re-reads whether the cache can run offline, keeps the loop going.
    virtual void showDownloadFinished() = 0;
    /// Sends the engine's interpretation of the new show to the cloud, in the background.
    virtual void publishInterpretationInBackground(const std::string& /*token*/) {}
};

/// The download every connect performs: the harness, the runtime bootstrap with the show, the
/// patches of the other shows, and the themes. Only a failed or unreadable bootstrap fails it;
/// the harness and the themes are kept from the cache when theirs fail. The owner cancels the
/// download (through its token) before this object goes away.
///
/// The tick of the lights keeps its rhythm meanwhile: decoding and cache reads run on a worker,
/// and each piece that must use the engine on the main thread (each step of building a new
/// engine, of realising the show, the themes) waits for its own slot right after a tick.
class ShowDownload {
public:
    /// `writer` writes the harness files off the main thread, telling `context` when done;
    /// with a `context`, decoding runs on a worker too. Without `tickSlots` the engine is used at
    /// once.
    ShowDownload(OfflineShowCache& cache, EngineHost& engine, ShowDownloadTarget& target,
                 CacheWriter* writer = nullptr, QObject* context = nullptr,
                 TickSlots* tickSlots = nullptr, HarnessLoader loader = {});
    ~ShowDownload();
    ShowDownload(const ShowDownload&) = delete;
    ShowDownload& operator=(const ShowDownload&) = delete;

    QCoro::Task<> fetchShowAndHarness(BridgeAPIClient client, std::string token,
                                      CancellationToken cancel);
    /// Fetches, in the background, the patch of every show whose cached patch is missing or of
    /// an older revision; a show that fails is skipped. Replaces a running prefetch.
    void prefetchShowPatches(BridgeAPIClient client, std::map<std::string, std::int64_t> revisions,
                             std::string token);
    bool isPrefetching() const { return prefetch_ != nullptr; }
    /// Applies a bootstrap the cloud pushed the way the download applies its own: decoded on
    /// the worker, applied in slots after ticks. One that does not decode changes nothing.
    QCoro::Task<> applyPushedBootstrap(QByteArray bytes, CancellationToken cancel);

private:
    QCoro::Task<> runPrefetch(BridgeAPIClient client, std::map<std::string, std::int64_t> revisions,
                              std::string token, std::shared_ptr<CancellationSource> flow);

    OfflineShowCache& cache_;
    EngineHost& engine_;
    ShowDownloadTarget& target_;
    CacheWriter* writer_;
    QObject* context_;
    HarnessLoader loader_;
    SlottedWork work_;
    std::shared_ptr<CancellationSource> prefetch_;
};

} // namespace kelvo
