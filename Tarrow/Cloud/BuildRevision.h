#pragma once

#include <string>

namespace kelvo {

/// The source revision this build was configured from (40 lowercase hex characters), or empty
/// when it was not built from a git checkout.
std::string buildRevision();

/// The revision, or a plain statement that it is unknown.
std::string buildRevisionDescription();

} // namespace kelvo
