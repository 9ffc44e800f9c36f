#pragma once

#include "support/ChildProcess.h"
#include "support/FileBytes.h"
#include "support/QtEventLoop.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QWebSocket>

#include <map>
#include <memory>

namespace kelvo::test {

/// A headless Chromium (Debian `chromium`) driven over its DevTools socket on loopback, as a
/// person's browser would be: open a page, wait for an element, click it.
class HeadlessBrowser {
public:
    static constexpr const char* program = "/usr/bin/chromium";

    explicit HeadlessBrowser(const std::filesystem::path& profile)
        : profile_(profile),
          process_({program, "--headless", "--no-sandbox", "--disable-gpu",
                    "--disable-background-networking", "--disable-component-update",
                    "--disable-sync", "--no-first-run", "--user-data-dir=" + profile.string(),
                    "--remote-debugging-address=127.0.0.1", "--remote-debugging-port=0",
                    "about:blank"},
                   profile.string() + ".log") {}

    static bool available() { return std::filesystem::exists(program); }

    /// Connects to the first page's DevTools socket.
    bool attach() {
        QNetworkAccessManager http;
        QString url;
        const bool found = pumpUntil([&] {
            const int port = std::atoi(readText(profile_ / "DevToolsActivePort").c_str());
            if (port == 0)
                return false;
            std::unique_ptr<QNetworkReply> reply(http.get(
                QNetworkRequest(QUrl(QStringLiteral("http://127.0.0.1:%1/json/list").arg(port)))));
            pumpUntil([&] { return reply->isFinished(); });
            for (const auto target : QJsonDocument::fromJson(reply->readAll()).array())
                if (target[QStringLiteral("type")].toString() == QLatin1String("page"))
                    url = target[QStringLiteral("webSocketDebuggerUrl")].toString();
            return !url.isEmpty();
        });
        QObject::connect(&socket_, &QWebSocket::textMessageReceived, [this](const QString& text) {
            const QJsonObject message = QJsonDocument::fromJson(text.toUtf8()).object();
            answers_[message[QStringLiteral("id")].toInt()] = message; // events land on 0
        });
        socket_.open(QUrl(url));
        return found &&
               pumpUntil([&] { return socket_.state() == QAbstractSocket::ConnectedState; });
    }

    void open(const QUrl& page) {
        call(QStringLiteral("Page.navigate"), {{"url", page.toString()}});
    }

    /// The value of a JavaScript expression in the page, as text.
    QString evaluate(const QString& expression) {
        const QJsonValue answer = call(QStringLiteral("Runtime.evaluate"),
                                       {{"expression", expression}, {"returnByValue", true}});
        return answer[QStringLiteral("result")][QStringLiteral("value")].toVariant().toString();
    }

    /// Waits until `expression` evaluates to "true".
    bool waitUntil(const QString& expression) {
        return pumpUntil([&] { return evaluate(expression) == QLatin1String("true"); });
    }

private:
    /// The "result" of a DevTools command.
    QJsonValue call(const QString& method, const QJsonObject& params) {
        const int id = ++lastId_;
        socket_.sendTextMessage(QString::fromUtf8(
            QJsonDocument(QJsonObject{{"id", id}, {"method", method}, {"params", params}})
                .toJson(QJsonDocument::Compact)));
        pumpUntil([&] { return answers_.contains(id); });
        return answers_[id][QStringLiteral("result")];
    }

    std::filesystem::path profile_;
    ChildProcess process_;
    QWebSocket socket_;
    std::map<int, QJsonObject> answers_;
    int lastId_ = 0;
};

} // namespace kelvo::test
