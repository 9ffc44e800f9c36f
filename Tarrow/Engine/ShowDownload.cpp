#include "Engine/ShowDownload.h"

#include "Cloud/OfflineShowCache.h"
#include "Engine/EngineHost.h"
#include "Show/BootstrapViewData.h"
#include "Show/ShowPatchBuilder.h"

#include <QLoggingCategory>

namespace kelvo {

namespace {
Q_LOGGING_CATEGORY(lcDownload, "kelvo.cloud.download")

std::string_view view(const QByteArray& bytes) {
    return {bytes.constData(), std::size_t(bytes.size())};
}
} // namespace

ShowDownload::ShowDownload(OfflineShowCache& cache, EngineHost& engine, ShowDownloadTarget& target,
                           CacheWriter* writer, QObject* context, HarnessLoader loader)
    : cache_(cache), engine_(engine), target_(target), writer_(writer), context_(context),
      loader_(loader) {}

ShowDownload::~ShowDownload() {
    if (prefetch_)
        prefetch_->cancel();
}

// Every task is made in its own statement before it is awaited: GCC 12 destroys argument
// temporaries inside a co_await expression twice when the coroutine suspends.

QCoro::Task<> ShowDownload::fetchShowAndHarness(BridgeAPIClient client, std::string token,
                                                CancellationToken cancel) {
    const std::optional<QByteArray> harnessBefore = cache_.loadHarnessJS();
    try {
        QCoro::Task<> harness = loader_.fetchAndCache(client.baseURL(), client.session(), cache_,
                                                      cancel, writer_, context_);
        co_await std::move(harness);
    } catch (const FlowCancelled&) {
        throw;
    } catch (const std::exception& error) {
        // The cached engine keeps running; the show may still be updated.
        qCWarning(lcDownload) << "lighting engine not updated:" << error.what();
    }
    cancel.throwIfCancelled();

    QCoro::Task<QByteArray> bootstrapDownload = client.fetchRuntimeBootstrap(token, cancel);
    const QByteArray bootstrapBytes = co_await std::move(bootstrapDownload);
    cancel.throwIfCancelled();
    const nlohmann::json bootstrap = BootstrapViewData::parseDocument(view(bootstrapBytes));

    // The new engine and the show it lights are loaded in one go, so the outputs never run an
    // engine without its show; an unchanged engine keeps its tempo lock across a reconnect.
    const std::optional<QByteArray> harness = cache_.loadHarnessJS();
    if (harness && (harness != harnessBefore || !engine_.hasContext()))
        engine_.loadHarness(view(*harness));
    target_.applyParsedBootstrap(bootstrap);
    // The active show's patch was just recorded from the bootstrap itself.
    std::map<std::string, std::int64_t> revisions =
        BootstrapViewData::parsed::extractShowRevisions(bootstrap);
    if (const auto activeShow = bootstrap.find("active_show");
        activeShow != bootstrap.end() && activeShow->is_object())
        if (const std::optional<ShowPatch> active = ShowPatchBuilder::build(*activeShow))
            revisions.erase(active->showId);
    prefetchShowPatches(client, std::move(revisions), token);
    target_.publishInterpretationInBackground(token);

    try {
        QCoro::Task<QByteArray> configDownload = client.fetchConfig(token, cancel);
        const QByteArray config = co_await std::move(configDownload);
        cancel.throwIfCancelled();
        std::vector<ThemeOption> themes = BootstrapViewData::extractThemeOptions(view(config));
        if (themes != target_.currentThemes())
            target_.replaceThemes(std::move(themes));
    } catch (const FlowCancelled&) {
        throw;
    } catch (const std::exception& error) {
        qCWarning(lcDownload) << "themes not updated:" << error.what();
    }
    cancel.throwIfCancelled();
    target_.showDownloadFinished();
}

void ShowDownload::prefetchShowPatches(BridgeAPIClient client,
                                       std::map<std::string, std::int64_t> revisions,
                                       std::string token) {
    if (prefetch_)
        prefetch_->cancel();
    prefetch_ = std::make_shared<CancellationSource>();
    runPrefetch(std::move(client), std::move(revisions), std::move(token), prefetch_);
}

QCoro::Task<> ShowDownload::runPrefetch(BridgeAPIClient client,
                                        std::map<std::string, std::int64_t> revisions,
                                        std::string token,
                                        std::shared_ptr<CancellationSource> flow) {
    const CancellationToken cancel(flow);
    for (const auto& [showId, revision] : revisions) {
        if (cancel.isCancelled())
            co_return;
        const std::optional<ShowPatch> cached = cache_.loadPatch(showId);
        if (cached && cached->revision >= revision)
            continue;
        std::optional<nlohmann::json> show;
        try {
            QCoro::Task<nlohmann::json> fetch = client.fetchShow(showId, token, cancel);
            show = co_await std::move(fetch);
        } catch (const std::exception& error) {
            if (!cancel.isCancelled())
                qCInfo(lcDownload) << "patch of a show skipped:" << error.what();
        }
        if (cancel.isCancelled())
            co_return;
        if (!show)
            continue;
        if (const std::optional<ShowPatch> patch = ShowPatchBuilder::build(*show))
            target_.recordShowPatch(*patch);
    }
    if (prefetch_ == flow)
        prefetch_.reset();
}

} // namespace kelvo
