#include "Cloud/QtURLSession.h"

#include <QBuffer>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace kelvo {

namespace {

/// The reason without the address Qt may put in it (a web-socket or query URL can carry secrets).
QString transportReason(const QNetworkReply& reply) {
    switch (reply.error()) {
    case QNetworkReply::ConnectionRefusedError:
        return QStringLiteral("Connection refused");
    case QNetworkReply::RemoteHostClosedError:
        return QStringLiteral("The server closed the connection");
    case QNetworkReply::HostNotFoundError:
        return QStringLiteral("Server not found");
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError: // the transfer timeout aborts this way
        return QStringLiteral("The request timed out");
    case QNetworkReply::SslHandshakeFailedError:
        return QStringLiteral("Secure connection failed");
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
        return QStringLiteral("The network is unavailable");
    default:
        break;
    }
    QString text = reply.errorString();
    const QString address = reply.request().url().toString();
    if (!address.isEmpty())
        text.replace(address, QStringLiteral("the server"));
    return text;
}

/// Connection and proxy failures, and a broken HTTP stream; the rest are answers with a status.
bool isCutOff(QNetworkReply::NetworkError error) {
    return error != QNetworkReply::NoError &&
           (error < QNetworkReply::ContentAccessDenied || error == QNetworkReply::ProtocolFailure);
}

} // namespace

QtURLSession::QtURLSession() : manager_(std::make_unique<QNetworkAccessManager>()) {
    // A redirect is answered as its 3xx status: the device token is never carried elsewhere.
    manager_->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
}

QtURLSession::~QtURLSession() = default;

QCoro::Task<HTTPResponse> QtURLSession::data(HTTPRequest request, CancellationToken cancel) {
    cancel.throwIfCancelled();
    if (request.url.scheme() == QLatin1String("https") && !tls_.isReady()) {
        QCoro::Task<> loading = tls_.ready(); // not on this thread, where the lights tick
        co_await std::move(loading);
        cancel.throwIfCancelled();
    }
    QNetworkRequest http(request.url);
    for (const auto& [name, value] : request.headers)
        http.setRawHeader(name, value);
    http.setTransferTimeout(static_cast<int>(request.timeout.count()));

    std::unique_ptr<QNetworkReply, void (*)(QNetworkReply*)> reply(
        request.body ? manager_->sendCustomRequest(http, request.method, *request.body)
                     : manager_->sendCustomRequest(http, request.method),
        [](QNetworkReply* r) { r->deleteLater(); });
    auto finished = std::make_shared<OneShotEvent>();
    QObject::connect(reply.get(), &QNetworkReply::finished, [finished] { finished->fire(); });
    auto tooLarge = std::make_shared<bool>(false);
    QObject::connect(reply.get(), &QNetworkReply::downloadProgress,
                     [raw = reply.get(), tooLarge,
                      limit = request.maximumResponseBytes](qint64 received, qint64 total) {
                         if (*tooLarge || (received <= limit && total <= limit))
                             return;
                         *tooLarge = true;
                         raw->abort();
                     });
    // Aborting emits finished, which resumes this frame.
    const auto subscription = cancel.onCancel([raw = reply.get()] { raw->abort(); });
    co_await *finished;
    cancel.throwIfCancelled();
    if (*tooLarge)
        throw TransportError("The server's answer is too large");

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    // The status comes with the headers: a body cut off after them is a failed transfer, never
    // an answer to store.
    if (status.isValid() && !isCutOff(reply->error()))
        co_return HTTPResponse{status.toInt(), reply->readAll()};
    if (reply->error() != QNetworkReply::NoError)
        throw TransportError(transportReason(*reply).toStdString());
    co_return HTTPResponse{std::nullopt, reply->readAll()};
}

} // namespace kelvo
