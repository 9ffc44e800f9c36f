// Hostile interpretation payloads from the engine script: decoding returns or gives nothing,
// and merged rows never share a fixture set within a group.
#include "Show/InterpretationTree.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string_view>

using namespace kelvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto tree =
        InterpretationTree::decode(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!tree)
        return 0;
    for (const auto& group : tree->groups) {
        std::set<std::string> keys;
        for (const auto& row : group.rows) {
            if (row.parts.empty() || !keys.insert(row.fixtureKey()).second)
                std::abort();
            (void)row.id();
        }
    }
    return 0;
}
