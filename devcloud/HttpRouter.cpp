#include "HttpRouter.h"

#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

#include <cstdio>
#include <memory>

namespace kelvo::devcloud {

using json = nlohmann::ordered_json;

const char* methodName(QHttpServerRequest::Method method) {
    using M = QHttpServerRequest::Method;
    switch (method) {
    case M::Get:
        return "GET";
    case M::Put:
        return "PUT";
    case M::Delete:
        return "DELETE";
    case M::Post:
        return "POST";
    case M::Head:
        return "HEAD";
    case M::Options:
        return "OPTIONS";
    case M::Patch:
        return "PATCH";
    default:
        return "OTHER";
    }
}

HttpReply HttpReply::json(const nlohmann::ordered_json& document, int status) {
    return {status, QByteArray::fromStdString(document.dump()), "application/json", {}};
}

HttpReply HttpReply::error(int status, const std::string& message) {
    return json(nlohmann::ordered_json{{"error", message}}, status);
}

HttpReply HttpReply::noContent() {
    return {204, {}, {}, {}};
}

HttpReply HttpReply::html(const QByteArray& page, int status) {
    return {status, page, "text/html; charset=utf-8", {}};
}

QByteArray HttpCall::header(const QByteArray& name) const {
    for (const auto& [key, value] : request.headers())
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    return {};
}

std::string HttpCall::bearerToken() const {
    const QByteArray value = header("Authorization").trimmed();
    if (value.size() <= 7 || value.left(7).compare("Bearer ", Qt::CaseInsensitive) != 0)
        return {};
    return value.mid(7).trimmed().toStdString();
}

QString HttpCall::origin() const {
    const QByteArray host = header("Host").trimmed();
    return host.isEmpty() ? fallbackOrigin : QStringLiteral("http://") + QString::fromLatin1(host);
}

std::optional<json> HttpCall::jsonBody() const {
    try {
        return json::parse(request.body().toStdString());
    } catch (const json::exception&) {
        return std::nullopt;
    }
}

std::optional<json> HttpCall::objectBody() const {
    std::optional<json> body = jsonBody();
    if (body && !body->is_object())
        body.reset();
    return body;
}

HttpRouter::HttpRouter(FaultInjector& faults, QString fallbackOrigin)
    : faults_(faults), fallbackOrigin_(std::move(fallbackOrigin)) {}

void HttpRouter::add(Method method, const QString& pattern, Handler handler) {
    routes_.push_back(Route{method,
                            QRegularExpression(QRegularExpression::anchoredPattern(pattern)),
                            std::move(handler)});
}

HttpReply HttpRouter::dispatch(const QHttpServerRequest& request, const QString& path) const {
    bool pathKnown = false;
    for (const Route& route : routes_) {
        const QRegularExpressionMatch match = route.pattern.match(path);
        if (!match.hasMatch())
            continue;
        pathKnown = true;
        if (route.method != request.method())
            continue;
        try {
            return route.handler(
                HttpCall{request, path, match.capturedTexts().mid(1), fallbackOrigin_});
        } catch (const std::exception& error) {
            std::fprintf(stderr, "kelvo-devcloud: %s /%s failed: %s\n",
                         methodName(request.method()), qPrintable(path), error.what());
            return HttpReply::error(500, error.what());
        }
    }
    return pathKnown ? HttpReply::error(405, "method not allowed on this path")
                     : HttpReply::error(404, "no such path: /" + path.toStdString());
}

namespace {

void write(QHttpServerResponder& responder, const HttpReply& reply) {
    responder.writeStatusLine(QHttpServerResponder::StatusCode(reply.status));
    if (!reply.contentType.isEmpty())
        responder.writeHeader("Content-Type", reply.contentType);
    for (const auto& [key, value] : reply.headers)
        responder.writeHeader(key, value);
    responder.writeHeader("Content-Length", QByteArray::number(reply.body.size()));
    responder.writeBody(reply.body);
}

} // namespace

void HttpRouter::serve(const QHttpServerRequest& request, QHttpServerResponder&& responder) {
    const QString path = normalisedPath(request.url().path());
    const char* method = methodName(request.method());
    ++counts_[std::string(method) + " " + path.toStdString()];

    const std::optional<Fault> fault = faults_.take(path);
    auto finish = [this, &request, path, method, fault](QHttpServerResponder& responder) {
        if (fault && fault->drop) {
            std::printf("%s /%s -> dropped\n", method, qPrintable(path));
            std::fflush(stdout);
            responder.socket()->abort();
            return;
        }
        const HttpReply reply = fault && fault->status
                                    ? HttpReply::error(fault->status, "injected fault")
                                    : dispatch(request, path);
        std::printf("%s /%s -> %d\n", method, qPrintable(path), reply.status);
        std::fflush(stdout);
        write(responder, reply);
    };
    if (!fault || fault->delayMs == 0) {
        finish(responder);
        return;
    }
    // The responder writes to the socket, so it must not outlive it: the timer dies with it.
    auto held = std::make_shared<QHttpServerResponder>(std::move(responder));
    QTimer::singleShot(fault->delayMs, held->socket(), [held, finish]() mutable { finish(*held); });
}

json HttpRouter::requestCounts() const {
    json counts = json::object();
    for (const auto& [key, count] : counts_)
        counts[key] = count;
    return counts;
}

} // namespace kelvo::devcloud
