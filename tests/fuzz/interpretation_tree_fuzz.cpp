// Hostile interpretation payloads from the engine script: decoding returns or gives nothing,
// and merged rows never share a fixture set within a group.
#include "FuzzTarget.h"
#include "Show/InterpretationTree.h"

#include <set>

KELVO_FUZZ_TARGET(input) {
    const auto tree = InterpretationTree::decode(input);
    if (!tree)
        return;
    for (const auto& group : tree->groups) {
        std::set<std::string> keys;
        for (const auto& row : group.rows) {
            require(!row.parts.empty() && keys.insert(row.fixtureKey()).second);
            (void)row.id();
        }
    }
}
