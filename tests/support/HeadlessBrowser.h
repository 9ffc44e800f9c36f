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

#include <csignal>
#include <map>
#include <memory>

namespace kelvo::test {

/// A headless Chromium (Debian `chromium`) driven over its DevTools socket on loopback, as a
/// person's browser would be: open a page, wait for an element, click it.
class HeadlessBrowser {
public:
    static constexpr const char* program = "/usr/bin/chromium";

    explicit HeadlessBrowser(const std::filesystem::path& profile) : profile_(profile) {
        pid_ = spawnWithOutput(
            program,
            {program, "--headless", "--no-sandbox", "--disable-gpu",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--no-first-run", "--user-data-dir=" + profile.string(),
             "--remote-debugging-address=127.0.0.1", "--remote-debugging-port=0", "about:blank"},
            profile.string() + ".log");
    }
    ~HeadlessBrowser() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            waitForExit(pid_);
        }
    }
    HeadlessBrowser(const HeadlessBrowser&) = delete;
    HeadlessBrowser& operator=(const HeadlessBrowser&) = delete;

    static bool available() { return std::filesystem::exists(program); }

    /// Connects to the first page's DevTools socket.
    bool attach() {
        int port = 0;
        pumpUntil([&] {
            return (port = std::atoi(readText(profile_ / "DevToolsActivePort").c_str())) > 0;
        });
        if (port == 0)
            return false;
        QNetworkAccessManager http;
        QString url;
        pumpUntil([&] {
            std::unique_ptr<QNetworkReply> reply(http.get(
                QNetworkRequest(QUrl(QStringLiteral("http://127.0.0.1:%1/json/list").arg(port)))));
            pumpUntil([&] { return reply->isFinished(); });
            for (const auto target : QJsonDocument::fromJson(reply->readAll()).array())
                if (target[QStringLiteral("type")].toString() == QLatin1String("page"))
                    url = target[QStringLiteral("webSocketDebuggerUrl")].toString();
            return !url.isEmpty();
        });
        if (url.isEmpty())
            return false;
        QObject::connect(&socket_, &QWebSocket::textMessageReceived, [this](const QString& text) {
            const QJsonObject message = QJsonDocument::fromJson(text.toUtf8()).object();
            if (message.contains(QStringLiteral("id")))
                answers_[message[QStringLiteral("id")].toInt()] = message;
        });
        socket_.open(QUrl(url));
        return pumpUntil([&] { return socket_.state() == QAbstractSocket::ConnectedState; });
    }

    QJsonObject call(const QString& method, const QJsonObject& params) {
        const int id = ++lastId_;
        socket_.sendTextMessage(QString::fromUtf8(
            QJsonDocument(QJsonObject{{"id", id}, {"method", method}, {"params", params}})
                .toJson(QJsonDocument::Compact)));
        pumpUntil([&] { return answers_.contains(id); });
        return answers_[id];
    }

    void open(const QUrl& page) {
        call(QStringLiteral("Page.navigate"), {{"url", page.toString()}});
    }

    /// The value of a JavaScript expression in the page, as text.
    QString evaluate(const QString& expression) {
        return call(QStringLiteral("Runtime.evaluate"),
                    {{"expression", expression}, {"returnByValue", true}})["result"]
            .toObject()["result"]
            .toObject()["value"]
            .toVariant()
            .toString();
    }

    /// Waits until `expression` evaluates to "true".
    bool waitUntil(const QString& expression) {
        return pumpUntil([&] { return evaluate(expression) == QLatin1String("true"); });
    }

    bool running() const { return pid_ > 0; }

private:
    std::filesystem::path profile_;
    pid_t pid_ = -1;
    QWebSocket socket_;
    std::map<int, QJsonObject> answers_;
    int lastId_ = 0;
};

} // namespace kelvo::test
