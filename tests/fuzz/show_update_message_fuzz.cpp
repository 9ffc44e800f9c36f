// Hostile show-update frames: decoding must return or drop, never throw or crash, and a
// re-serialised bootstrap must itself be valid JSON.
#include "Cloud/ShowUpdateMessage.h"
#include "FuzzTarget.h"

KELVO_FUZZ_TARGET(input) {
    const auto message = decodeShowUpdateMessage(input);
    if (!message)
        return;
    if (const auto* bootstrap = std::get_if<show_update::Bootstrap>(&*message))
        require(!nlohmann::json::parse(bootstrap->bytes, nullptr, false).is_discarded());
    if (const auto* control = std::get_if<show_update::ControlState>(&*message))
        require(control->object.is_object());
}
