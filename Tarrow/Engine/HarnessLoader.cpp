#include "Engine/HarnessLoader.h"

#include "Cloud/BridgeAPIClient.h"
#include "Cloud/BridgeAPIError.h"
#include "Cloud/CacheWriter.h"
#include "Cloud/OfflineShowCache.h"

#include <nlohmann/json.hpp>

namespace kelvo {

namespace {

QCoro::Task<QByteArray> get(std::shared_ptr<URLRequestPerforming> http, std::optional<QUrl> url,
                            CancellationToken cancel) {
    if (!url)
        throw BridgeAPIError::invalidResponse();
    HTTPRequest request;
    request.url = std::move(*url);
    // Made apart from the co_await: GCC 12 mishandles argument temporaries inside it.
    QCoro::Task<HTTPResponse> answer = http->data(std::move(request), cancel);
    const HTTPResponse response = co_await std::move(answer);
    cancel.throwIfCancelled();
    co_return response.body;
}

} // namespace

std::string HarnessLoader::scriptFileName(QByteArrayView manifest) const {
    const nlohmann::json document = nlohmann::json::parse(manifest.begin(), manifest.end());
    if (!document.is_object())
        throw HarnessLoaderError();
    const auto major = document.find("harnessMajor");
    const auto file = document.find("file");
    if (major == document.end() || !major->is_number_integer() ||
        major->get<std::int64_t>() != harnessMajor || file == document.end() || !file->is_string())
        throw HarnessLoaderError();
    return file->get<std::string>();
}

QCoro::Task<> HarnessLoader::fetchAndCache(QUrl baseURL, std::shared_ptr<URLRequestPerforming> http,
                                           OfflineShowCache& cache, CancellationToken cancel,
                                           CacheWriter* writer, QObject* context) const {
    const HarnessLoader loader = *this; // the caller's loader may be gone after a wait
    const BridgeAPIClient paths(baseURL, http);
    QCoro::Task<QByteArray> manifestDownload =
        get(http, paths.endpoint(QString::fromLatin1(manifestPath)), cancel);
    const QByteArray manifest = co_await std::move(manifestDownload);
    const std::string file = loader.scriptFileName(manifest);
    QCoro::Task<QByteArray> scriptDownload =
        get(http, paths.endpoint(QString::fromLatin1(scriptFolder) + QString::fromStdString(file)),
            cancel);
    const QByteArray script = co_await std::move(scriptDownload);
    if (!writer) {
        cache.saveHarnessJS(script, manifest);
        co_return;
    }
    QCoro::Task<> saving = writer->written(
        [&cache, script, manifest] { cache.saveHarnessJS(script, manifest); }, context);
    co_await std::move(saving);
    cancel.throwIfCancelled();
}

} // namespace kelvo
