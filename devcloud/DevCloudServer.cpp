#include "DevCloudServer.h"

#include "AdminRoutes.h"
#include "FrontDoor.h"
#include "Options.h"
#include "PageRoutes.h"
#include "ShowUpdatesHub.h"

#include <QUrlQuery>

namespace kelvo::devcloud {

namespace {

const QString showUpdatesPath = QStringLiteral("/ws/show-updates");

} // namespace

DevCloudServer::DevCloudServer(DevCloud& cloud, FaultInjector& faults, Settings settings,
                               QObject* parent)
    : QObject(parent), cloud_(cloud), faults_(faults), settings_(std::move(settings)) {
    hub_ = new ShowUpdatesHub(
        [this] {
            return QByteArray::fromStdString(nlohmann::ordered_json{
                {"type", "control_state"},
                {"data", cloud_.controlState()}}.dump());
        },
        this);
    connect(&cloud_, &DevCloud::message, hub_, &ShowUpdatesHub::broadcast);
    connect(&cloud_, &DevCloud::deviceRevoked, hub_, &ShowUpdatesHub::closeToken);

    http_.setMissingHandler(
        [this](const QHttpServerRequest& request, QHttpServerResponder&& responder) {
            router_->serve(request, std::move(responder));
        });
}

DevCloudServer::~DevCloudServer() = default;

std::optional<QString> DevCloudServer::listen(const QHostAddress& address, quint16 port) {
    door_ = new FrontDoor(
        faults_,
        [this](const QUrl& target) {
            FrontDoor::Verdict verdict;
            if (target.path() != showUpdatesPath)
                return FrontDoor::Verdict{404, "no web socket at " + target.path().toStdString()};
            const QUrlQuery query(target);
            if (query.queryItemValue(QStringLiteral("role")) != QLatin1String("runtime"))
                return FrontDoor::Verdict{400, "the query needs role=runtime"};
            const std::string token =
                query.queryItemValue(QStringLiteral("token"), QUrl::FullyDecoded).toStdString();
            switch (cloud_.access(token)) {
            case DevCloud::Access::granted:
                cloud_.noteSeen(token);
                return verdict;
            case DevCloud::Access::revoked:
                return FrontDoor::Verdict{403, "this device token was revoked"};
            case DevCloud::Access::unknown:
                break;
            }
            return FrontDoor::Verdict{401, "unknown device token"};
        },
        [this](QTcpSocket* socket, const QUrl&) { hub_->accept(socket); });
    if (!door_->listen(address, port)) {
        const QString error = QStringLiteral("cannot listen on %1: %2")
                                  .arg(authority(address, port), door_->errorString());
        delete door_;
        door_ = nullptr;
        return error;
    }
    router_ = std::make_unique<HttpRouter>(faults_, QStringLiteral("http://") +
                                                        authority(address, door_->serverPort()));
    addApiRoutes(*router_, cloud_, settings_.api);
    addAdminRoutes(*router_, cloud_, faults_, *hub_, settings_.adminSecret);
    addPageRoutes(*router_, cloud_, [this] { return hub_->connectedCount(); });
    http_.bind(door_);
    return std::nullopt;
}

quint16 DevCloudServer::port() const {
    return door_ ? door_->serverPort() : 0;
}

} // namespace kelvo::devcloud
