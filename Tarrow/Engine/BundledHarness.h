#pragma once

#include <string>

namespace kelvo {

/// The development lighting engine built into the program (devcloud/harness/engine.js). It runs
/// when the cache holds no harness, or when the cached one hangs at load, so a cached show always
/// has an engine to light it.
const std::string& bundledHarnessScript();

} // namespace kelvo
