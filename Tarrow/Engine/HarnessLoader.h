#pragma once

#include "Cloud/Cancellation.h"
#include "Cloud/URLRequestPerforming.h"

#include <QByteArrayView>
#include <QUrl>

#include <memory>
#include <stdexcept>
#include <string>

namespace kelvo {

class CacheWriter;
class OfflineShowCache;

/// A manifest without the accepted harness major or without a script file name.
class HarnessLoaderError : public std::runtime_error {
public:
    static constexpr const char* domain = "HarnessLoader";
    static constexpr int code = 1;
    static constexpr const char* invalidManifestText = "Invalid harness manifest";

    HarnessLoaderError() : std::runtime_error(invalidManifestText) {}
};

/// Downloads the lighting engine script the server publishes under "bridge-harness/v1/" and
/// caches it with its manifest, both only once both downloads have arrived. The engine host is
/// always loaded from the cached "engine.js" afterwards.
struct HarnessLoader {
    static constexpr const char* manifestPath = "bridge-harness/v1/manifest.json";
    static constexpr const char* scriptFolder = "bridge-harness/v1/";

    /// The major version this application accepts.
    int harnessMajor = 1;

    /// The script's file name from a manifest: an object whose integer "harnessMajor" equals
    /// ours and whose "file" is text. Throws the JSON parser's error for a manifest that is not
    /// JSON, HarnessLoaderError otherwise.
    std::string scriptFileName(QByteArrayView manifest) const;

    /// Manifest, then script (plain GETs; the script's HTTP status is not examined), then both
    /// cache files, written by `writer` when given (its completion is told on `context`'s
    /// thread). Transport errors pass through; the cache is unchanged by any failure.
    QCoro::Task<> fetchAndCache(QUrl baseURL, std::shared_ptr<URLRequestPerforming> http,
                                OfflineShowCache& cache, CancellationToken cancel,
                                CacheWriter* writer = nullptr, QObject* context = nullptr) const;
};

} // namespace kelvo
