// Hostile answers from a cloud server: every response record decoder and the harness manifest
// check must either return or throw their documented error, never crash; addresses built from
// hostile codes, tokens and download paths stay well-formed.
#include "Cloud/AppUpdateNotice.h"
#include "Cloud/BridgeAPIClient.h"
#include "Cloud/BridgeAPIError.h"
#include "Cloud/BridgeAPIRecords.h"
#include "Engine/HarnessLoader.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace kelvo;

namespace {

template <typename Decode> void decodeOrReject(Decode decode) {
    try {
        decode();
    } catch (const ResponseDecodingError&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArrayView body(reinterpret_cast<const char*>(data), qsizetype(size));
    decodeOrReject([&] { PairingStartResponse::decode(body); });
    decodeOrReject([&] { PairingStatusResponse::decode(body); });
    decodeOrReject([&] { BridgeAPIVersionResponse::decode(body); });
    decodeOrReject([&] {
        const auto info = BridgeSessionInfo::decode(body);
        if (!(info == info))
            std::abort();
    });

    try {
        if (HarnessLoader{}.scriptFileName(body).size() > size)
            std::abort();
    } catch (const HarnessLoaderError&) {
    } catch (const nlohmann::json::exception&) {
    }

    // The same bytes as text a server hands back: a pairing code, a token, a download path.
    const std::string text(body.data(), std::size_t(body.size()));
    const BridgeAPIClient client(QUrl("https://10.0.0.5/sub/"), nullptr);
    try {
        const QUrl socket = client.showUpdatesWebSocketURL(text);
        if (socket.scheme() != QLatin1String("wss") || !socket.isValid())
            std::abort();
    } catch (const BridgeAPIError&) {
    }
    if (const auto joined = client.endpoint(QString::fromUtf8(body)); joined && !joined->isValid())
        std::abort();
    if (const auto download =
            AppUpdateNotice::resolveDownloadURL(QString::fromUtf8(body), client.baseURL());
        download && !download->isValid())
        std::abort();
    return 0;
}
