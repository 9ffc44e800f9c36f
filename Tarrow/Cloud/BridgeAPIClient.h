#pragma once

#include "Cloud/BridgeAPIRecords.h"
#include "Cloud/URLRequestPerforming.h"

#include <QByteArray>
#include <QUrl>

#include <nlohmann/json.hpp>

#include <memory>
#include <optional>
#include <string>

namespace kelvo {

/// The bridge's only door to the cloud's REST interface: one call per endpoint, no retries, no
/// state, no stored token. A value: copies may be used at once, and every call keeps what it
/// needs, so the client may go away while a call runs.
///
/// Every call fails with the transport's TransportError (or FlowCancelled), BridgeAPIError
/// `httpError` for a status outside 2xx (the body is not read), `invalidResponse` for an
/// unusable address or a non-HTTP answer, or ResponseDecodingError for a body that is not the
/// expected record.
class BridgeAPIClient {
public:
    static constexpr std::chrono::milliseconds requestTimeout{60'000};
    static constexpr std::chrono::milliseconds versionTimeout{5'000};

    BridgeAPIClient(QUrl baseURL, std::shared_ptr<URLRequestPerforming> session)
        : baseURL_(std::move(baseURL)), session_(std::move(session)) {}

    const QUrl& baseURL() const { return baseURL_; }
    const std::shared_ptr<URLRequestPerforming>& session() const { return session_; }

    QCoro::Task<BridgeAPIVersionResponse> fetchAPIVersion(CancellationToken cancel = {}) const;
    QCoro::Task<PairingStartResponse> startPairing(CancellationToken cancel = {}) const;
    QCoro::Task<PairingStatusResponse> pollPairingStatus(const std::string& code,
                                                         CancellationToken cancel = {}) const;
    QCoro::Task<BridgeSessionInfo> fetchSessionInfo(const std::string& deviceToken,
                                                    CancellationToken cancel = {}) const;
    QCoro::Task<QByteArray> fetchRuntimeBootstrap(const std::string& deviceToken,
                                                  CancellationToken cancel = {}) const;
    QCoro::Task<QByteArray> fetchRuntimeActiveShow(const std::string& deviceToken,
                                                   CancellationToken cancel = {}) const;
    QCoro::Task<QByteArray> fetchConfig(const std::string& deviceToken,
                                        CancellationToken cancel = {}) const;
    /// The show as a JSON object; another top level is `invalidResponse`.
    QCoro::Task<nlohmann::json> fetchShow(const std::string& id, const std::string& deviceToken,
                                          CancellationToken cancel = {}) const;
    QCoro::Task<nlohmann::json> activateShow(const std::string& id, const std::string& deviceToken,
                                             CancellationToken cancel = {}) const;
    QCoro::Task<> patchControlState(const nlohmann::json& fields, const std::string& deviceToken,
                                    CancellationToken cancel = {}) const;
    QCoro::Task<> publishInterpretationTree(const QByteArray& payload,
                                            const std::string& deviceToken,
                                            CancellationToken cancel = {}) const;
    QCoro::Task<> disconnect(const std::string& deviceToken, CancellationToken cancel = {}) const;

    /// "ws" or "wss" (for an "https" base), the base path + "/ws/show-updates", and the query
    /// role=runtime&token=…; throws BridgeAPIError `invalidResponse` when it cannot be built.
    QUrl showUpdatesWebSocketURL(const std::string& deviceToken) const;

    /// `path` joined to the base with one "/"; absent when the result is no usable URL.
    std::optional<QUrl> endpoint(QStringView path) const;

private:
    std::optional<HTTPRequest> request(QByteArray method, std::optional<QUrl> url,
                                       const std::string* deviceToken = nullptr,
                                       std::optional<QByteArray> jsonBody = std::nullopt) const;
    QCoro::Task<QByteArray> send(std::optional<HTTPRequest> request,
                                 CancellationToken cancel) const;

    QUrl baseURL_;
    std::shared_ptr<URLRequestPerforming> session_;
};

} // namespace kelvo
