#include "Engine/DropDiagnostics.h"

#include "Show/StrictJson.h"

namespace kelvo {

void to_json(nlohmann::json& out, const DropDetectedEvent& event) {
    out = {
        {"emittedAt", event.emittedAt}, {"proposalAt", event.proposalAt}, {"source", event.source}};
}

void from_json(const nlohmann::json& in, DropDetectedEvent& event) {
    event.emittedAt = strict_json::number(in, "emittedAt");
    event.proposalAt = strict_json::number(in, "proposalAt");
    event.source = strict_json::string(in, "source");
}

} // namespace kelvo
