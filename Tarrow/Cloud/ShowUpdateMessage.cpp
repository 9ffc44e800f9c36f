#include "Cloud/ShowUpdateMessage.h"

#include "Show/UntrustedJSON.h"

namespace kelvo {

namespace {

using nlohmann::json;
using namespace show_update;

ShowUpdateMessage decodeTyped(const std::string& type, const json& message) {
    const auto data = message.find("data");
    const bool hasData = data != message.end();
    const bool dataIsObject = hasData && data->is_object();

    if (type == "bootstrap")
        return hasData ? ShowUpdateMessage(Bootstrap{data->dump()}) : Ignored{};
    if (type == "control_state")
        return dataIsObject ? ShowUpdateMessage(ControlState{*data}) : Ignored{};
    if (type == "show_snapshot")
        return dataIsObject ? ShowUpdateMessage(ShowSnapshot{*data}) : Ignored{};
    if (type == "show_changed") {
        if (!dataIsObject)
            return Ignored{};
        const auto revision = data->find("revision");
        // Only whole numbers count; 3.5, "3" or a missing key all mean "reload whatever is live".
        if (revision != data->end() && revision->is_number_integer())
            return ShowChanged{revision->is_number_unsigned() &&
                                       revision->get<std::uint64_t>() > INT64_MAX
                                   ? std::nullopt
                                   : std::optional(revision->get<std::int64_t>())};
        return ShowChanged{};
    }
    if (type == "shared_catalog_changed")
        return ShowChanged{};
    if (type == "force_drop") {
        if (!dataIsObject)
            return Ignored{};
        const auto active = data->find("active");
        if (active == data->end() || !active->is_boolean())
            return Ignored{};
        return ForceDrop{active->get<bool>()};
    }
    if (type == "shift_lighting_only")
        return ShiftLightingOnly{};
    if (type == "shift_color_scheme")
        return ShiftColorScheme{};
    return Ignored{};
}

} // namespace

std::optional<ShowUpdateMessage> decodeShowUpdateMessage(std::string_view bytes) {
    if (bytes.size() > kMaxShowUpdateFrameBytes)
        return std::nullopt;
    json message = parseUntrustedJSON(bytes);
    if (!message.is_object())
        return std::nullopt;
    const auto type = message.find("type");
    if (type == message.end() || !type->is_string())
        return std::nullopt;
    return decodeTyped(type->get<std::string>(), message);
}

} // namespace kelvo
