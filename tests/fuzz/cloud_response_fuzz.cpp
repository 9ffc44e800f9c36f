// Hostile answers from a cloud server: every response record decoder and the harness manifest
// check must either return or throw their documented error, never crash; addresses built from
// hostile codes, tokens and download paths stay well-formed.
#include "Cloud/AppUpdateNotice.h"
#include "Cloud/BridgeAPIClient.h"
#include "Cloud/BridgeAPIError.h"
#include "Cloud/BridgeAPIRecords.h"
#include "Engine/HarnessLoader.h"
#include "FuzzTarget.h"

using namespace kelvo;

namespace {

template <typename Decode> void decodeOrReject(Decode decode) {
    try {
        decode();
    } catch (const ResponseDecodingError&) {
    }
}

} // namespace

KELVO_FUZZ_TARGET(input) {
    const QByteArrayView body(input.data(), qsizetype(input.size()));
    decodeOrReject([&] { PairingStartResponse::decode(body); });
    decodeOrReject([&] { PairingStatusResponse::decode(body); });
    decodeOrReject([&] { BridgeAPIVersionResponse::decode(body); });
    decodeOrReject([&] {
        const auto info = BridgeSessionInfo::decode(body);
        require(info == info);
    });

    try {
        require(HarnessLoader{}.scriptFileName(body).size() <= input.size());
    } catch (const HarnessLoaderError&) {
    } catch (const nlohmann::json::exception&) {
    }

    // The same bytes as text a server hands back: a pairing code, a token, a download path.
    const BridgeAPIClient client(QUrl("https://10.0.0.5/sub/"), nullptr);
    try {
        const QUrl socket = client.showUpdatesWebSocketURL(std::string(input));
        require(socket.scheme() == QLatin1String("wss") && socket.isValid());
    } catch (const BridgeAPIError&) {
    }
    const QString text = QString::fromUtf8(body);
    if (const auto joined = client.endpoint(text))
        require(joined->isValid());
    if (const auto download = AppUpdateNotice::resolveDownloadURL(text, client.baseURL()))
        require(download->isValid());
}
