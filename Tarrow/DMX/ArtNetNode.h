#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace kelvo {

/// A node heard by discovery, as its ArtPollReply describes it.
struct ArtNetNode {
    std::string ip;
    std::string mac;
    std::string shortName;
    std::string longName;
    std::vector<std::int64_t> outputUniverses;       ///< port-addresses of output-capable ports
    std::vector<std::int64_t> transmittingUniverses; ///< those of them sending data
    std::chrono::system_clock::time_point lastSeen;

    /// Discovery keys nodes by MAC text, or by address when the reply carried none.
    const std::string& identity() const { return mac.empty() ? ip : mac; }

    friend bool operator==(const ArtNetNode&, const ArtNetNode&) = default;
};

} // namespace kelvo
