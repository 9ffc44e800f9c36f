#pragma once

#include "support/QtEventLoop.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QWebSocket>

#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <vector>

namespace kelvo::test {

struct HttpResult {
    int status = 0;
    QByteArray body;

    nlohmann::json json() const { return nlohmann::json::parse(body.toStdString()); }
};

/// Plain HTTP calls as the bridge makes them, on the test's event loop.
class DevCloudClient {
public:
    /// `adminSecret`, when given, goes with every call as the admin header.
    explicit DevCloudClient(std::string baseUrl, std::string adminSecret = {})
        : baseUrl_(std::move(baseUrl)), adminSecret_(std::move(adminSecret)) {
        qtApplication();
    }

    HttpResult send(const QByteArray& method, const std::string& path,
                    const std::string& token = {}, const QByteArray& body = {}) {
        QNetworkRequest request(QUrl(QString::fromStdString(baseUrl_ + "/" + path)));
        request.setTransferTimeout(10'000);
        if (!token.empty())
            request.setRawHeader("Authorization", "Bearer " + QByteArray::fromStdString(token));
        if (!adminSecret_.empty())
            request.setRawHeader("X-Kelvo-Admin", QByteArray::fromStdString(adminSecret_));
        if (!body.isEmpty())
            request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
        std::unique_ptr<QNetworkReply> reply(manager_.sendCustomRequest(request, method, body));
        pumpUntil([&] { return reply->isFinished(); }, std::chrono::seconds(15));
        return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                reply->readAll()};
    }

private:
    std::string baseUrl_;
    std::string adminSecret_;
    QNetworkAccessManager manager_;
};

/// One bridge's show-updates socket, collecting what the cloud pushes.
class ShowUpdatesListener {
public:
    ShowUpdatesListener(const std::string& baseUrl, const std::string& token) {
        QObject::connect(&socket, &QWebSocket::textMessageReceived,
                         [this](const QString& text) { messages.push_back(text.toStdString()); });
        QString url = QString::fromStdString(baseUrl);
        url.replace(QStringLiteral("http://"), QStringLiteral("ws://"));
        socket.open(QUrl(url + QStringLiteral("/ws/show-updates?role=runtime&token=") +
                         QString::fromStdString(token)));
    }

    /// The next message of `type` received after the first `skip` messages, as JSON.
    std::optional<nlohmann::json> waitFor(const std::string& type, size_t skip = 0) {
        std::optional<nlohmann::json> found;
        pumpUntil([&] {
            for (size_t i = skip; i < messages.size() && !found; ++i) {
                auto message = nlohmann::json::parse(messages[i], nullptr, false);
                if (message.is_object() && message.value("type", "") == type)
                    found = message;
            }
            return found.has_value();
        });
        return found;
    }

    QWebSocket socket;
    std::vector<std::string> messages;
};

} // namespace kelvo::test
