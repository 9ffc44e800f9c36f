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

/// The bootstrap as the main thread needs it: parsed, with the revisions of the shows whose
/// patches may need fetching (the active show's patch comes with the bootstrap itself).
struct DecodedBootstrap {
    nlohmann::json document;
    std::map<std::string, std::int64_t> otherRevisions;
};

DecodedBootstrap decodeBootstrap(const QByteArray& bytes) {
    DecodedBootstrap decoded;
    decoded.document = BootstrapViewData::parseDocument(view(bytes));
    decoded.otherRevisions = BootstrapViewData::parsed::extractShowRevisions(decoded.document);
    if (const auto activeShow = decoded.document.find("active_show");
        activeShow != decoded.document.end() && activeShow->is_object())
        if (const std::optional<ShowPatch> active = ShowPatchBuilder::build(*activeShow))
            decoded.otherRevisions.erase(active->showId);
    return decoded;
}
} // namespace

ShowDownload::ShowDownload(OfflineShowCache& cache, EngineHost& engine, ShowDownloadTarget& target,
                           CacheWriter* writer, QObject* context, TickSlots* tickSlots,
                           HarnessLoader loader)
    : cache_(cache), engine_(engine), target_(target), writer_(writer), context_(context),
      loader_(loader), work_(tickSlots, context) {}

ShowDownload::~ShowDownload() {
    if (prefetch_)
        prefetch_->cancel();
}

// Every task is made in its own statement before it is awaited: GCC 12 destroys argument
// temporaries inside a co_await expression twice when the coroutine suspends.

QCoro::Task<> ShowDownload::fetchShowAndHarness(BridgeAPIClient client, std::string token,
                                                CancellationToken cancel) {
    OfflineShowCache* cache = &cache_;
    QCoro::Task<std::optional<QByteArray>> readingBefore =
        work_.offMainThread<std::optional<QByteArray>>([cache] { return cache->loadHarnessJS(); });
    const std::optional<QByteArray> harnessBefore = co_await std::move(readingBefore);
    cancel.throwIfCancelled();
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
    QCoro::Task<DecodedBootstrap> decoding = work_.offMainThread<DecodedBootstrap>(
        [bootstrapBytes] { return decodeBootstrap(bootstrapBytes); });
    DecodedBootstrap bootstrap = co_await std::move(decoding);
    cancel.throwIfCancelled();
    // The cached engine, when the download changed it.
    QCoro::Task<std::optional<QByteArray>> readingAfter =
        work_.offMainThread<std::optional<QByteArray>>([cache, harnessBefore] {
            std::optional<QByteArray> harness = cache->loadHarnessJS();
            return harness != harnessBefore ? harness : std::nullopt;
        });
    std::optional<QByteArray> harness = co_await std::move(readingAfter);
    cancel.throwIfCancelled();
    if (!harness && !engine_.hasContext())
        harness = harnessBefore;

    // A new engine is built in a context of its own, one piece per slot right after a tick,
    // while the running engine keeps stepping. It takes over together with its show; an
    // unchanged engine keeps its tempo lock across a reconnect.
    if (harness) {
        const std::uint64_t build = engine_.beginHarness(view(*harness));
        try {
            do {
                QCoro::Task<> buildSlot = work_.slot(cancel);
                co_await std::move(buildSlot);
                cancel.throwIfCancelled();
            } while (!engine_.continueHarness());
        } catch (const FlowCancelled&) {
            engine_.abandonHarness(build); // never a half-built engine left behind
            throw;
        }
    }
    QCoro::Task<> showSlot = work_.slot(cancel);
    co_await std::move(showSlot);
    QCoro::Task<> applying = target_.applyParsedBootstrap(std::move(bootstrap.document), cancel);
    co_await std::move(applying);
    cancel.throwIfCancelled();
    prefetchShowPatches(client, std::move(bootstrap.otherRevisions), token);
    target_.publishInterpretationInBackground(token);

    try {
        QCoro::Task<QByteArray> configDownload = client.fetchConfig(token, cancel);
        const QByteArray config = co_await std::move(configDownload);
        cancel.throwIfCancelled();
        QCoro::Task<std::vector<ThemeOption>> decodingThemes =
            work_.offMainThread<std::vector<ThemeOption>>(
                [config] { return BootstrapViewData::extractThemeOptions(view(config)); });
        std::vector<ThemeOption> themes = co_await std::move(decodingThemes);
        cancel.throwIfCancelled();
        if (themes != target_.currentThemes()) {
            QCoro::Task<> themeSlot = work_.slot(cancel);
            co_await std::move(themeSlot);
            target_.replaceThemes(std::move(themes));
        }
    } catch (const FlowCancelled&) {
        throw;
    } catch (const std::exception& error) {
        qCWarning(lcDownload) << "themes not updated:" << error.what();
    }
    cancel.throwIfCancelled();
    target_.showDownloadFinished();
}

QCoro::Task<> ShowDownload::applyPushedBootstrap(QByteArray bytes, CancellationToken cancel) {
    try {
        QCoro::Task<DecodedBootstrap> decoding =
            work_.offMainThread<DecodedBootstrap>([bytes] { return decodeBootstrap(bytes); });
        DecodedBootstrap bootstrap = co_await std::move(decoding);
        cancel.throwIfCancelled();
        QCoro::Task<> slot = work_.slot(cancel);
        co_await std::move(slot);
        QCoro::Task<> applying =
            target_.applyParsedBootstrap(std::move(bootstrap.document), cancel);
        co_await std::move(applying);
    } catch (const FlowCancelled&) {
    } catch (const std::exception& error) {
        // A bad push changes nothing; the next connect downloads the whole state again.
        qCWarning(lcDownload) << "pushed bootstrap ignored:" << error.what();
    }
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
        OfflineShowCache* cache = &cache_;
        QCoro::Task<std::optional<std::int64_t>> reading =
            work_.offMainThread<std::optional<std::int64_t>>(
                [cache, id = showId]() -> std::optional<std::int64_t> {
                    if (const std::optional<ShowPatch> cached = cache->loadPatch(id))
                        return cached->revision;
                    return std::nullopt;
                });
        const std::optional<std::int64_t> cachedRevision = co_await std::move(reading);
        if (cancel.isCancelled())
            co_return;
        if (cachedRevision && *cachedRevision >= revision)
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
