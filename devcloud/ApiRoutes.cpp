#include "ApiRoutes.h"

#include "DevCloud.h"
#include "HttpRouter.h"

#include <QDir>
#include <QFile>

#include <variant>

namespace kelvo::devcloud {

namespace {

using json = nlohmann::ordered_json;
using Method = QHttpServerRequest::Method;

/// The calling device, or the refusal: 401 for a missing or unknown token, 403 for a revoked one.
std::variant<const Device*, HttpReply> authorise(DevCloud& cloud, const HttpCall& call) {
    const std::string token = call.bearerToken();
    switch (cloud.access(token)) {
    case DevCloud::Access::granted:
        cloud.noteSeen(token);
        return cloud.device(token);
    case DevCloud::Access::revoked:
        return HttpReply::error(403, "this device token was revoked");
    case DevCloud::Access::unknown:
        break;
    }
    return HttpReply::error(401, token.empty() ? "missing bearer token" : "unknown device token");
}

/// Runs `handler` for an authorised device only.
template <typename Handler> HttpRouter::Handler withDevice(DevCloud& cloud, Handler handler) {
    return [&cloud, handler](const HttpCall& call) -> HttpReply {
        auto device = authorise(cloud, call);
        if (auto* refusal = std::get_if<HttpReply>(&device))
            return *refusal;
        return handler(call, *std::get<const Device*>(device));
    };
}

HttpReply harnessFile(const QString& directory, const QString& name) {
    // Plain file names only: nothing outside the harness folder is served.
    static const QRegularExpression plainName(QStringLiteral("^[A-Za-z0-9_-][A-Za-z0-9._-]*$"));
    if (!plainName.match(name).hasMatch())
        return HttpReply::error(404, "no such harness file");
    QFile file(QDir(directory).filePath(name));
    if (!file.open(QIODevice::ReadOnly))
        return HttpReply::error(404, "no such harness file: " + name.toStdString());
    const QByteArray type = name.endsWith(QLatin1String(".js"))
                                ? "application/javascript; charset=utf-8"
                                : "application/json";
    return HttpReply{200, file.readAll(), type, {}};
}

} // namespace

void addApiRoutes(HttpRouter& router, DevCloud& cloud, const ApiSettings& settings) {
    router.add(Method::Get, QStringLiteral("api/health"), [settings](const HttpCall&) {
        json health{{"api_version", settings.apiVersion.toStdString()}};
        if (settings.publishedApiVersion)
            health["published_api_version"] = settings.publishedApiVersion->toStdString();
        health["app_download_url"] = settings.appDownloadUrl.toStdString();
        return HttpReply::json(health);
    });

    router.add(
        Method::Post, QStringLiteral("api/bridge/pairing/start"), [&cloud](const HttpCall& call) {
            const auto started = cloud.startPairing();
            const QString browserUrl = call.origin() + QStringLiteral("/pair?code=") + started.code;
            return HttpReply::json(
                {{"code", started.code.toStdString()},
                 {"browser_url", browserUrl.toStdString()},
                 {"expires_at", started.expiresAt.toString(Qt::ISODate).toStdString()}});
        });

    router.add(
        Method::Get, QStringLiteral("api/bridge/pairing/status"), [&cloud](const HttpCall& call) {
            const QString code =
                call.request.query().queryItemValue(QStringLiteral("code"), QUrl::FullyDecoded);
            if (code.isEmpty())
                return HttpReply::error(400, "the query needs the pairing code: ?code=…");
            const auto answer = cloud.pairingStatus(code);
            json body{{"status", statusText(answer.status)}};
            if (answer.status == PairingStatus::complete) {
                body["device_token"] = answer.deviceToken.toStdString();
                body["org_id"] = "org-devcloud";
                body["show_id"] = cloud.activeShowId();
            }
            return HttpReply::json(body);
        });

    router.add(Method::Get, QStringLiteral("api/auth/me"),
               withDevice(cloud, [&cloud](const HttpCall&, const Device& device) {
                   return HttpReply::json(cloud.sessionInfo(device));
               }));

    router.add(Method::Get, QStringLiteral("api/runtime/bootstrap"),
               withDevice(cloud, [&cloud](const HttpCall&, const Device&) {
                   return HttpReply::json(cloud.bootstrap());
               }));

    router.add(Method::Get, QStringLiteral("api/runtime/active-show"),
               withDevice(cloud, [&cloud](const HttpCall&, const Device&) {
                   return HttpReply::json(cloud.activeShowDocument());
               }));

    router.add(Method::Get, QStringLiteral("api/config"),
               withDevice(cloud, [&cloud](const HttpCall&, const Device&) {
                   return HttpReply::json(cloud.config());
               }));

    router.add(Method::Get, QStringLiteral("api/shows/([^/]+)"),
               withDevice(cloud, [&cloud](const HttpCall& call, const Device&) {
                   const json* show = cloud.show(call.captures[0].toStdString());
                   return show ? HttpReply::json(*show) : HttpReply::error(404, "no such show");
               }));

    router.add(Method::Post, QStringLiteral("api/shows/([^/]+)/activate"),
               withDevice(cloud, [&cloud](const HttpCall& call, const Device&) {
                   const std::string id = call.captures[0].toStdString();
                   switch (cloud.activateShow(id)) {
                   case DevCloud::ShowChange::done:
                       break;
                   case DevCloud::ShowChange::archivedShow:
                       return HttpReply::error(409, "the show is archived");
                   default:
                       return HttpReply::error(404, "no such show");
                   }
                   const json* show = cloud.show(id);
                   return HttpReply::json({{"show_id", id},
                                           {"active", true},
                                           {"revision", show->value("revision", 0)}});
               }));

    router.add(Method::Patch, QStringLiteral("api/control-state"),
               withDevice(cloud, [&cloud](const HttpCall& call, const Device&) {
                   const auto fields = call.jsonBody();
                   if (!fields)
                       return HttpReply::error(400, "the body is not JSON");
                   if (const auto error = cloud.patchControlState(*fields))
                       return HttpReply::error(400, *error);
                   return HttpReply::json({{"control_state", cloud.controlState()}});
               }));

    router.add(Method::Post, QStringLiteral("api/runtime/interpretation-tree"),
               withDevice(cloud, [&cloud](const HttpCall& call, const Device& device) {
                   auto payload = call.objectBody();
                   if (!payload)
                       return HttpReply::error(400, "the interpretation must be a JSON object");
                   cloud.recordInterpretation(device, std::move(*payload));
                   return HttpReply::noContent();
               }));

    router.add(Method::Post, QStringLiteral("api/bridge/disconnect"),
               withDevice(cloud, [&cloud](const HttpCall&, const Device& device) {
                   cloud.noteSeen(device.token, true);
                   return HttpReply::noContent();
               }));

    const QString harness = settings.harnessDirectory;
    router.add(Method::Get, QStringLiteral("bridge-harness/v1/(.+)"),
               [harness](const HttpCall& call) { return harnessFile(harness, call.captures[0]); });
}

} // namespace kelvo::devcloud
