#pragma once

#include "ApiRoutes.h"
#include "DevCloud.h"
#include "FaultInjector.h"
#include "HttpRouter.h"

#include <QHostAddress>
#include <QHttpServer>
#include <QObject>

#include <memory>
#include <optional>

namespace kelvo::devcloud {

class FrontDoor;
class ShowUpdatesHub;

/// The whole server: the front door, the HTTP routes, the show-updates hub and the cloud behind
/// them, wired once.
class DevCloudServer : public QObject {
    Q_OBJECT
public:
    struct Settings {
        ApiSettings api;
        /// Empty: no admin API.
        QString adminSecret;
    };
    DevCloudServer(DevCloud& cloud, FaultInjector& faults, Settings settings,
                   QObject* parent = nullptr);
    ~DevCloudServer() override;

    /// Starts listening; the error text when the address cannot be used.
    std::optional<QString> listen(const QHostAddress& address, quint16 port);
    quint16 port() const;

private:
    DevCloud& cloud_;
    FaultInjector& faults_;
    Settings settings_;
    std::unique_ptr<HttpRouter> router_;
    QHttpServer http_;
    FrontDoor* door_ = nullptr;
    ShowUpdatesHub* hub_ = nullptr;
};

} // namespace kelvo::devcloud
