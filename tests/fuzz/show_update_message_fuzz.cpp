// Hostile show-update frames: decoding must return or drop, never throw or crash, and a
// re-serialised bootstrap must itself be valid JSON.
#include "Cloud/ShowUpdateMessage.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace kelvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto message = decodeShowUpdateMessage(bytes);
    if (!message)
        return 0;
    if (const auto* bootstrap = std::get_if<show_update::Bootstrap>(&*message)) {
        if (nlohmann::json::parse(bootstrap->bytes, nullptr, false).is_discarded())
            std::abort();
    }
    if (const auto* control = std::get_if<show_update::ControlState>(&*message))
        if (!control->object.is_object())
            std::abort();
    return 0;
}
