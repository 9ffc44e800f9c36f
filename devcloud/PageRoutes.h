#pragma once

#include <functional>

namespace kelvo::devcloud {

class DevCloud;
class HttpRouter;

/// The pages a person opens: the pairing approval page at the `browser_url` handed to bridges,
/// and the control page with the JSON calls behind it.
void addPageRoutes(HttpRouter& router, DevCloud& cloud, std::function<int()> connectedBridges);

} // namespace kelvo::devcloud
