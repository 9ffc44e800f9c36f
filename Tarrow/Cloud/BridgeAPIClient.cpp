#include "Cloud/BridgeAPIClient.h"

#include "Cloud/BridgeAPIError.h"
#include "Show/UntrustedJSON.h"

#include <QUrlQuery>

namespace kelvo {

namespace {

// GCC 12 destroys the argument temporaries of a call inside a co_await expression twice when
// the coroutine suspends, so every task below is made in its own statement and then awaited.

// Each runs after its request was built, holding everything by value: the client that started
// it may be gone by the time the answer arrives.

QCoro::Task<QByteArray> perform(std::shared_ptr<URLRequestPerforming> session,
                                std::optional<HTTPRequest> request, CancellationToken cancel) {
    if (!request)
        throw BridgeAPIError::invalidResponse();
    QCoro::Task<HTTPResponse> answer = session->data(std::move(*request), cancel);
    const HTTPResponse response = co_await std::move(answer);
    cancel.throwIfCancelled();
    if (!response.statusCode)
        throw BridgeAPIError::invalidResponse();
    if (*response.statusCode < 200 || *response.statusCode > 299)
        throw BridgeAPIError::httpError(*response.statusCode);
    co_return response.body;
}

template <typename Record> QCoro::Task<Record> decoded(QCoro::Task<QByteArray> body) {
    const QByteArray bytes = co_await std::move(body);
    co_return Record::decode(bytes);
}

QCoro::Task<nlohmann::json> jsonObject(QCoro::Task<QByteArray> body) {
    const QByteArray bytes = co_await std::move(body);
    nlohmann::json object =
        parseUntrustedJSON(std::string_view(bytes.constData(), std::size_t(bytes.size())));
    if (!object.is_object())
        throw BridgeAPIError::invalidResponse();
    co_return object;
}

QCoro::Task<> nothing(QCoro::Task<QByteArray> body) {
    co_await std::move(body);
}

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

} // namespace

std::optional<QUrl> BridgeAPIClient::endpoint(QStringView path) const {
    QString base = QString::fromUtf8(baseURL_.toEncoded());
    while (base.endsWith(u'/'))
        base.chop(1);
    if (path.startsWith(u'/'))
        path = path.mid(1);
    const QUrl url(base + u'/' + path.toString(), QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty())
        return std::nullopt;
    return url;
}

std::optional<HTTPRequest> BridgeAPIClient::request(QByteArray method, std::optional<QUrl> url,
                                                    const std::string* deviceToken,
                                                    std::optional<QByteArray> jsonBody) const {
    if (!url)
        return std::nullopt;
    HTTPRequest request;
    request.method = std::move(method);
    request.url = std::move(*url);
    if (deviceToken)
        request.headers.emplace_back("Authorization",
                                     "Bearer " + QByteArray::fromStdString(*deviceToken));
    if (jsonBody) {
        request.headers.emplace_back("Content-Type", "application/json");
        request.body = std::move(jsonBody);
    }
    request.timeout = requestTimeout;
    return request;
}

QCoro::Task<QByteArray> BridgeAPIClient::send(std::optional<HTTPRequest> request,
                                              CancellationToken cancel) const {
    return perform(session_, std::move(request), std::move(cancel));
}

QCoro::Task<BridgeAPIVersionResponse>
BridgeAPIClient::fetchAPIVersion(CancellationToken cancel) const {
    std::optional<HTTPRequest> health = request("GET", endpoint(u"api/health"));
    if (health)
        health->timeout = versionTimeout;
    return decoded<BridgeAPIVersionResponse>(send(std::move(health), std::move(cancel)));
}

QCoro::Task<PairingStartResponse> BridgeAPIClient::startPairing(CancellationToken cancel) const {
    return decoded<PairingStartResponse>(
        send(request("POST", endpoint(u"api/bridge/pairing/start"), nullptr, QByteArray("{}")),
             std::move(cancel)));
}

QCoro::Task<PairingStatusResponse>
BridgeAPIClient::pollPairingStatus(const std::string& code, CancellationToken cancel) const {
    std::optional<QUrl> url = endpoint(u"api/bridge/pairing/status");
    if (url) {
        // The component encoder escapes the code, "+" and "&" included.
        QUrlQuery query;
        query.addQueryItem(QStringLiteral("code"),
                           QString::fromUtf8(QUrl::toPercentEncoding(text(code))));
        url->setQuery(query.query(QUrl::FullyEncoded), QUrl::StrictMode);
        if (!url->isValid())
            url.reset();
    }
    return decoded<PairingStatusResponse>(send(request("GET", url), std::move(cancel)));
}

QCoro::Task<BridgeSessionInfo> BridgeAPIClient::fetchSessionInfo(const std::string& deviceToken,
                                                                 CancellationToken cancel) const {
    return decoded<BridgeSessionInfo>(
        send(request("GET", endpoint(u"api/auth/me"), &deviceToken), std::move(cancel)));
}

QCoro::Task<QByteArray> BridgeAPIClient::fetchRuntimeBootstrap(const std::string& deviceToken,
                                                               CancellationToken cancel) const {
    return send(request("GET", endpoint(u"api/runtime/bootstrap"), &deviceToken),
                std::move(cancel));
}

QCoro::Task<QByteArray> BridgeAPIClient::fetchRuntimeActiveShow(const std::string& deviceToken,
                                                                CancellationToken cancel) const {
    return send(request("GET", endpoint(u"api/runtime/active-show"), &deviceToken),
                std::move(cancel));
}

QCoro::Task<QByteArray> BridgeAPIClient::fetchConfig(const std::string& deviceToken,
                                                     CancellationToken cancel) const {
    return send(request("GET", endpoint(u"api/config"), &deviceToken), std::move(cancel));
}

QCoro::Task<nlohmann::json> BridgeAPIClient::fetchShow(const std::string& id,
                                                       const std::string& deviceToken,
                                                       CancellationToken cancel) const {
    // The id goes in as it is, without percent-encoding.
    return jsonObject(
        send(request("GET", endpoint(QStringLiteral("api/shows/") + text(id)), &deviceToken),
             std::move(cancel)));
}

QCoro::Task<nlohmann::json> BridgeAPIClient::activateShow(const std::string& id,
                                                          const std::string& deviceToken,
                                                          CancellationToken cancel) const {
    return jsonObject(send(
        request("POST",
                endpoint(QStringLiteral("api/shows/") + text(id) + QStringLiteral("/activate")),
                &deviceToken),
        std::move(cancel)));
}

QCoro::Task<> BridgeAPIClient::patchControlState(const nlohmann::json& fields,
                                                 const std::string& deviceToken,
                                                 CancellationToken cancel) const {
    const nlohmann::json object = fields.is_object() ? fields : nlohmann::json::object();
    return nothing(send(request("PATCH", endpoint(u"api/control-state"), &deviceToken,
                                QByteArray::fromStdString(object.dump())),
                        std::move(cancel)));
}

QCoro::Task<> BridgeAPIClient::publishInterpretationTree(const QByteArray& payload,
                                                         const std::string& deviceToken,
                                                         CancellationToken cancel) const {
    return nothing(
        send(request("POST", endpoint(u"api/runtime/interpretation-tree"), &deviceToken, payload),
             std::move(cancel)));
}

QCoro::Task<> BridgeAPIClient::disconnect(const std::string& deviceToken,
                                          CancellationToken cancel) const {
    return nothing(
        send(request("POST", endpoint(u"api/bridge/disconnect"), &deviceToken), std::move(cancel)));
}

QUrl BridgeAPIClient::showUpdatesWebSocketURL(const std::string& deviceToken) const {
    QUrl url(QString::fromUtf8(baseURL_.toEncoded()), QUrl::StrictMode);
    if (!url.isValid())
        throw BridgeAPIError::invalidResponse();
    url.setScheme(url.scheme() == QLatin1String("https") ? QStringLiteral("wss")
                                                         : QStringLiteral("ws"));
    QString path = url.path();
    if (path.endsWith(u'/'))
        path.chop(1);
    url.setPath(path + QStringLiteral("/ws/show-updates"));
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("role"), QStringLiteral("runtime"));
    query.addQueryItem(QStringLiteral("token"),
                       QString::fromUtf8(QUrl::toPercentEncoding(text(deviceToken))));
    url.setQuery(query.query(QUrl::FullyEncoded), QUrl::StrictMode);
    if (!url.isValid())
        throw BridgeAPIError::invalidResponse();
    return url;
}

} // namespace kelvo
