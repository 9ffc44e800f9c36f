#include "PageRoutes.h"

#include "DevCloud.h"
#include "HttpRouter.h"

#include <QFile>
#include <QUrlQuery>

namespace kelvo::devcloud {

namespace {

using json = nlohmann::ordered_json;
using Method = QHttpServerRequest::Method;

QByteArray resource(const QString& name) {
    QFile file(QStringLiteral(":/devcloud/pages/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray page(const QString& title, const QString& body) {
    return (QStringLiteral("<!doctype html><html lang=\"en\"><head><meta charset=\"utf-8\">"
                           "<meta name=\"viewport\" content=\"width=device-width\"><title>") +
            title.toHtmlEscaped() + QStringLiteral("</title><style>") +
            QString::fromUtf8(resource(QStringLiteral("style.css"))) +
            QStringLiteral("</style></head><body><h1>") + title.toHtmlEscaped() +
            QStringLiteral("</h1>") + body + QStringLiteral("</body></html>"))
        .toUtf8();
}

/// The code of a pairing form post ("code=…") or of the query.
QString formCode(const HttpCall& call) {
    const QUrlQuery form(
        QString::fromUtf8(call.request.body()).replace(QLatin1Char('+'), QLatin1Char(' ')));
    const QString posted = form.queryItemValue(QStringLiteral("code"), QUrl::FullyDecoded);
    return posted.isEmpty()
               ? call.request.query().queryItemValue(QStringLiteral("code"), QUrl::FullyDecoded)
               : posted;
}

HttpReply pairingPage(DevCloud& cloud, const QString& code) {
    const QString shown = QStringLiteral("<p class=\"code\">%1</p>").arg(code.toHtmlEscaped());
    switch (cloud.pairingStatus(code).status) {
    case PairingStatus::pending:
        return HttpReply::html(page(
            QStringLiteral("Approve this bridge?"),
            shown +
                QStringLiteral(
                    "<p>A Kelvo Bridge asks to join the account <b>Kelvo Dev Cloud</b>. Approve "
                    "it only if this code is the one the bridge opened this page with.</p>"
                    "<form method=\"post\" class=\"row\">"
                    "<input type=\"hidden\" name=\"code\" value=\"%1\">"
                    "<button id=\"approve\" class=\"primary\" formaction=\"/pair/approve\">"
                    "Approve</button>"
                    "<button id=\"deny\" class=\"danger\" formaction=\"/pair/deny\">Deny</button>"
                    "</form>")
                    .arg(code.toHtmlEscaped())));
    case PairingStatus::complete:
        return HttpReply::html(
            page(QStringLiteral("Bridge approved"),
                 shown + QStringLiteral("<p id=\"result\">The bridge is "
                                        "linked. You can close this page.</p>")));
    case PairingStatus::expired:
        return HttpReply::html(
            page(QStringLiteral("Pairing code expired"),
                 shown + QStringLiteral("<p id=\"result\">This code was denied or has expired. "
                                        "Log in again from the bridge.</p>")),
            410);
    case PairingStatus::unknown:
        break;
    }
    return HttpReply::html(page(QStringLiteral("Unknown pairing code"),
                                shown + QStringLiteral("<p id=\"result\">This server never issued "
                                                       "this code, or has forgotten it.</p>")),
                           404);
}

/// The JSON body of a control-page call. Requiring the JSON content type keeps other web sites
/// from posting here: a browser asks first, and this server never says yes.
std::optional<json> controlBody(const HttpCall& call) {
    if (!call.header("Content-Type").startsWith("application/json"))
        return std::nullopt;
    return call.objectBody();
}

HttpReply showChangeReply(DevCloud::ShowChange change) {
    switch (change) {
    case DevCloud::ShowChange::done:
        return HttpReply::noContent();
    case DevCloud::ShowChange::archivedShow:
        return HttpReply::error(409, "the show is archived");
    case DevCloud::ShowChange::badName:
        return HttpReply::error(400, "the name must not be empty");
    case DevCloud::ShowChange::unknownShow:
        break;
    }
    return HttpReply::error(404, "no such show");
}

} // namespace

void addPageRoutes(HttpRouter& router, DevCloud& cloud, std::function<int()> connectedBridges) {
    router.add(Method::Get, QStringLiteral("pair"),
               [&cloud](const HttpCall& call) { return pairingPage(cloud, formCode(call)); });
    router.add(Method::Post, QStringLiteral("pair/(approve|deny)"), [&cloud](const HttpCall& call) {
        const QString code = formCode(call);
        if (call.captures[0] == QLatin1String("approve")) {
            cloud.approvePairing(code);
        } else if (cloud.denyPairing(code)) {
            return HttpReply::html(page(
                QStringLiteral("Bridge refused"),
                QStringLiteral("<p class=\"code\">%1</p><p id=\"result\">The bridge will report "
                               "its pairing code as expired.</p>")
                    .arg(code.toHtmlEscaped())));
        }
        return pairingPage(cloud, code);
    });

    router.add(Method::Get, QString(), [](const HttpCall&) {
        return HttpReply{302, {}, {}, {{"Location", "/control"}}};
    });
    router.add(Method::Get, QStringLiteral("control"), [](const HttpCall&) {
        return HttpReply::html(resource(QStringLiteral("control.html")));
    });
    router.add(Method::Get, QStringLiteral("control/style.css"), [](const HttpCall&) {
        return HttpReply{200, resource(QStringLiteral("style.css")), "text/css; charset=utf-8", {}};
    });
    router.add(Method::Get, QStringLiteral("control/state"),
               [&cloud, connectedBridges](const HttpCall&) {
                   return HttpReply::json(cloud.overview(connectedBridges()));
               });

    using Action = std::function<HttpReply(const json&)>;
    auto action = [&router](const QString& name, Action act) {
        router.add(Method::Post, QStringLiteral("control/") + name, [act](const HttpCall& call) {
            const auto body = controlBody(call);
            if (!body)
                return HttpReply::error(400, "send a JSON object as application/json");
            try {
                return act(*body);
            } catch (const json::exception&) {
                return HttpReply::error(400, "a field has the wrong type");
            }
        });
    };
    action(QStringLiteral("control-state"), [&cloud](const json& body) {
        const auto error = cloud.patchControlState(body);
        return error ? HttpReply::error(400, *error) : HttpReply::noContent();
    });
    action(QStringLiteral("force-drop"), [&cloud](const json& body) {
        cloud.setForcedDrop(body.at("active").get<bool>());
        return HttpReply::noContent();
    });
    action(QStringLiteral("shift"), [&cloud](const json& body) {
        const std::string what = body.at("what").get<std::string>();
        if (what == "lighting")
            cloud.shiftLighting();
        else if (what == "color_scheme")
            cloud.shiftColorScheme();
        else
            return HttpReply::error(400, "what must be lighting or color_scheme");
        return HttpReply::noContent();
    });
    action(QStringLiteral("activate"), [&cloud](const json& body) {
        return showChangeReply(cloud.activateShow(body.at("show_id").get<std::string>()));
    });
    action(QStringLiteral("rename"), [&cloud](const json& body) {
        return showChangeReply(cloud.renameShow(body.at("show_id").get<std::string>(),
                                                body.at("name").get<std::string>()));
    });
    action(QStringLiteral("push"), [&cloud](const json& body) {
        const std::string type = body.at("type").get<std::string>();
        if (type == "show_snapshot")
            cloud.pushShowSnapshot();
        else if (type == "shared_catalog_changed")
            cloud.pushSharedCatalogChanged();
        else
            return HttpReply::error(400, "type must be show_snapshot or shared_catalog_changed");
        return HttpReply::noContent();
    });
    action(QStringLiteral("revoke"), [&cloud](const json& body) {
        return cloud.revoke(body.at("token").get<std::string>())
                   ? HttpReply::noContent()
                   : HttpReply::error(404, "no such device, or revoked already");
    });
}

} // namespace kelvo::devcloud
