#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

// One message pushed by the cloud over the show-updates socket.
namespace kelvo {

// Larger frames are refused unread: a full bootstrap is well under a megabyte, and a hostile
// or broken server must not make the bridge buffer or parse arbitrary amounts.
inline constexpr std::size_t kMaxShowUpdateFrameBytes = 4 * 1024 * 1024;

namespace show_update {

struct Bootstrap {
    std::string bytes; // the "data" value re-serialised, as the bootstrap request would return it
    bool operator==(const Bootstrap&) const = default;
};
struct ControlState {
    nlohmann::json object;
    bool operator==(const ControlState&) const = default;
};
struct ShowSnapshot {
    nlohmann::json object;
    bool operator==(const ShowSnapshot&) const = default;
};
struct ShowChanged {
    std::optional<std::int64_t> revision;
    bool operator==(const ShowChanged&) const = default;
};
struct ForceDrop {
    bool active = false;
    bool operator==(const ForceDrop&) const = default;
};
struct ShiftLightingOnly {
    bool operator==(const ShiftLightingOnly&) const = default;
};
struct ShiftColorScheme {
    bool operator==(const ShiftColorScheme&) const = default;
};
struct Ignored {
    bool operator==(const Ignored&) const = default;
};

} // namespace show_update

using ShowUpdateMessage =
    std::variant<show_update::Bootstrap, show_update::ControlState, show_update::ShowSnapshot,
                 show_update::ShowChanged, show_update::ForceDrop, show_update::ShiftLightingOnly,
                 show_update::ShiftColorScheme, show_update::Ignored>;

// Nothing for bytes that are not a JSON object with a string "type", or that exceed the
// frame cap; `Ignored` for unknown types and known types whose "data" has the wrong shape.
// Never throws.
std::optional<ShowUpdateMessage> decodeShowUpdateMessage(std::string_view bytes);

} // namespace kelvo
