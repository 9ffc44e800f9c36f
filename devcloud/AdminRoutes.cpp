#include "AdminRoutes.h"

#include "DevCloud.h"
#include "FaultInjector.h"
#include "HttpRouter.h"
#include "ShowUpdatesHub.h"

namespace kelvo::devcloud {

namespace {

using json = nlohmann::ordered_json;
using Method = QHttpServerRequest::Method;

std::variant<Fault, std::string> faultFrom(const json& body) {
    Fault fault;
    try {
        fault.delayMs = body.value("delay_ms", 0);
        fault.drop = body.value("drop", false);
        fault.status = body.value("status", 0);
        fault.remaining = body.value("times", -1);
    } catch (const json::exception&) {
        return "delay_ms, status and times must be integers, drop a boolean";
    }
    if (fault.delayMs < 0 || (fault.status != 0 && (fault.status < 100 || fault.status > 599)) ||
        fault.remaining == 0 || fault.remaining < -1)
        return "delay_ms must be 0 or more, status 100 to 599, times 1 or more";
    if (fault.delayMs == 0 && !fault.drop && fault.status == 0)
        return "a fault needs delay_ms, drop or status";
    return fault;
}

} // namespace

void addAdminRoutes(HttpRouter& router, DevCloud& cloud, FaultInjector& faults, ShowUpdatesHub& hub,
                    const QString& secret) {
    if (secret.isEmpty())
        return;
    const QByteArray expected = secret.toUtf8();
    auto admin = [expected](auto handler) -> HttpRouter::Handler {
        return [expected, handler](const HttpCall& call) -> HttpReply {
            const QByteArray given = call.header("X-Kelvo-Admin");
            if (given.isEmpty())
                return HttpReply::error(401, "the X-Kelvo-Admin header is missing");
            if (given != expected)
                return HttpReply::error(403, "wrong admin secret");
            return handler(call);
        };
    };

    router.add(Method::Get, QStringLiteral("api/admin/state"),
               admin([&cloud, &faults, &hub, &router](const HttpCall&) {
                   return HttpReply::json({{"overview", cloud.overview(hub.connectedCount())},
                                           {"requests", router.requestCounts()},
                                           {"faults", faults.describe()}});
               }));

    router.add(Method::Post, QStringLiteral("api/admin/faults"),
               admin([&faults](const HttpCall& call) {
                   const auto body = call.objectBody();
                   if (!body || !body->contains("path") || !(*body)["path"].is_string())
                       return HttpReply::error(400, "the body needs a \"path\" text");
                   const auto fault = faultFrom(*body);
                   if (const auto* error = std::get_if<std::string>(&fault))
                       return HttpReply::error(400, *error);
                   faults.set(QString::fromStdString((*body)["path"].get<std::string>()),
                              std::get<Fault>(fault));
                   return HttpReply::json({{"faults", faults.describe()}});
               }));

    router.add(Method::Delete, QStringLiteral("api/admin/faults"),
               admin([&faults](const HttpCall&) {
                   faults.clear();
                   return HttpReply::noContent();
               }));

    // {"type": …, "data": …} is sent as such; {"text": …} is sent verbatim, malformed or not.
    router.add(Method::Post, QStringLiteral("api/admin/push"),
               admin([&cloud](const HttpCall& call) {
                   const auto body = call.objectBody();
                   if (body && body->contains("text") && (*body)["text"].is_string()) {
                       cloud.pushRaw(QByteArray::fromStdString((*body)["text"].get<std::string>()));
                       return HttpReply::noContent();
                   }
                   if (!body || !body->contains("type"))
                       return HttpReply::error(400, "the body needs \"type\" (and \"data\") or "
                                                    "\"text\"");
                   cloud.pushRaw(QByteArray::fromStdString(body->dump()));
                   return HttpReply::noContent();
               }));

    router.add(Method::Post, QStringLiteral("api/admin/revoke"),
               admin([&cloud](const HttpCall& call) {
                   const auto body = call.objectBody();
                   if (!body || !body->contains("token") || !(*body)["token"].is_string())
                       return HttpReply::error(400, "the body needs a \"token\" text");
                   return cloud.revoke((*body)["token"].get<std::string>())
                              ? HttpReply::noContent()
                              : HttpReply::error(404, "no such device, or revoked already");
               }));

    router.add(Method::Post, QStringLiteral("api/admin/close-sockets"),
               admin([&hub](const HttpCall&) {
                   hub.closeAll();
                   return HttpReply::noContent();
               }));
}

} // namespace kelvo::devcloud
