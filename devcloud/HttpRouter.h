#pragma once

#include "FaultInjector.h"

#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QRegularExpression>
#include <QStringList>

#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kelvo::devcloud {

struct HttpReply {
    int status = 200;
    QByteArray body;
    QByteArray contentType;
    std::vector<std::pair<QByteArray, QByteArray>> headers;

    static HttpReply json(const nlohmann::ordered_json& document, int status = 200);
    /// {"error": message}
    static HttpReply error(int status, const std::string& message);
    static HttpReply noContent();
    static HttpReply html(const QByteArray& page, int status = 200);
};

/// One request as a handler sees it.
struct HttpCall {
    const QHttpServerRequest& request;
    /// The URL path without its leading "/".
    QString path;
    /// The pattern's capture groups.
    QStringList captures;
    /// The origin to use when the client sent no Host header.
    QString fallbackOrigin;

    QByteArray header(const QByteArray& name) const;
    /// The token of an "Authorization: Bearer …" header; empty when there is none.
    std::string bearerToken() const;
    /// "http://HOST:PORT" as the client addressed this server.
    QString origin() const;
    /// The body parsed as JSON; nothing when it is not JSON.
    std::optional<nlohmann::ordered_json> jsonBody() const;
    /// The body when it is a JSON object; nothing otherwise.
    std::optional<nlohmann::ordered_json> objectBody() const;
};

/// Routes requests by method and path to handlers, after the fault injector had its say.
class HttpRouter {
public:
    using Handler = std::function<HttpReply(const HttpCall&)>;
    using Method = QHttpServerRequest::Method;

    HttpRouter(FaultInjector& faults, QString fallbackOrigin);

    /// `pattern` is a regular expression for the whole path without its leading "/".
    void add(Method method, const QString& pattern, Handler handler);

    void serve(const QHttpServerRequest& request, QHttpServerResponder&& responder);

    /// How many requests each "METHOD path" had, for tests that count calls.
    nlohmann::ordered_json requestCounts() const;

private:
    struct Route {
        Method method;
        QRegularExpression pattern;
        Handler handler;
    };
    HttpReply dispatch(const QHttpServerRequest& request, const QString& path) const;

    FaultInjector& faults_;
    QString fallbackOrigin_;
    std::vector<Route> routes_;
    std::map<std::string, int> counts_;
};

const char* methodName(QHttpServerRequest::Method method);

} // namespace kelvo::devcloud
