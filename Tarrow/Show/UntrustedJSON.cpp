#include "Show/UntrustedJSON.h"

namespace kelvo {

bool jsonNestsTooDeep(std::string_view bytes) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char c = bytes[i];
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaxJSONNestingDepth)
                return true;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

nlohmann::json parseUntrustedJSON(std::string_view bytes) {
    if (jsonNestsTooDeep(bytes))
        return nlohmann::json(nlohmann::json::value_t::discarded);
    return nlohmann::json::parse(bytes, nullptr, /*allow_exceptions=*/false);
}

} // namespace kelvo
