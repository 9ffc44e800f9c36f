#pragma once

#include <QString>

#include <functional>

namespace kelvo::devcloud {

class DevCloud;
class FaultInjector;
class HttpRouter;
class ShowUpdatesHub;

/// api/admin/*: what tests need beyond the bridge's own API (faults at run time, any pushed
/// message, revocation, closing sockets, request counts). Every call must carry the header
/// "X-Kelvo-Admin" with `secret`; without a secret the routes do not exist.
void addAdminRoutes(HttpRouter& router, DevCloud& cloud, FaultInjector& faults, ShowUpdatesHub& hub,
                    const QString& secret);

} // namespace kelvo::devcloud
