#include "Show/InterpretationTree.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>

namespace kelvo {

namespace {

using nlohmann::json;

constexpr char kUngroupedLabel[] = "ungrouped";
constexpr char kUnnamedLabel[] = "(unnamed)";
constexpr char kDefaultCategory[] = "Animation";

std::string stringOr(const json& object, const char* key, const char* fallback) {
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : fallback;
}

std::vector<std::string> stringList(const json& object, const char* key) {
    std::vector<std::string> strings;
    const auto it = object.find(key);
    if (it == object.end() || !it->is_array())
        return strings;
    for (const auto& element : *it)
        if (element.is_string())
            strings.push_back(element.get<std::string>());
    return strings;
}

bool isKind(const json& node, const char* kind) {
    if (!node.is_object())
        return false;
    const auto it = node.find("kind");
    return it != node.end() && it->is_string() && it->get_ref<const std::string&>() == kind;
}

// Interpreters on the same fixture set share one row, in order of first appearance; `rowByKey`
// finds it by its fixture key.
void mergeRow(std::vector<InterpretationRow>& rows, std::map<std::string, std::size_t>& rowByKey,
              InterpretationRow row) {
    const auto [same, added] = rowByKey.try_emplace(row.fixtureKey(), rows.size());
    if (added) {
        rows.push_back(std::move(row));
        return;
    }
    InterpretationRow& shared = rows[same->second];
    shared.parts.insert(shared.parts.end(), row.parts.begin(), row.parts.end());
}

InterpretationGroup decodeGroup(const json& node) {
    InterpretationGroup group{stringOr(node, "label", kUngroupedLabel), {}};
    const auto children = node.find("children");
    if (children == node.end() || !children->is_array())
        return group;
    std::map<std::string, std::size_t> rowByKey;
    for (const auto& child : *children) {
        if (!isKind(child, "interpreter"))
            continue;
        mergeRow(group.rows, rowByKey,
                 InterpretationRow{{{stringOr(child, "label", kUnnamedLabel),
                                     stringOr(child, "category", kDefaultCategory)}},
                                   stringOr(child, "fixture_label", ""),
                                   stringList(child, "fixtures")});
    }
    return group;
}

} // namespace

std::string InterpretationRow::fixtureKey() const {
    auto sorted = fixtureIds;
    std::sort(sorted.begin(), sorted.end());
    std::string key;
    for (std::size_t i = 0; i < sorted.size(); ++i)
        key += (i ? "\n" : "") + sorted[i];
    return key;
}

std::string InterpretationRow::label() const {
    std::string joined;
    for (std::size_t i = 0; i < parts.size(); ++i)
        joined += (i ? " + " : "") + parts[i].label;
    return joined;
}

std::string InterpretationRow::id() const {
    return fixtureKey() + '\x1f' + label();
}

std::vector<InterpretationLabelPart> InterpretationRow::partsIn(std::string_view category) const {
    std::vector<InterpretationLabelPart> matching;
    for (const auto& part : parts)
        if (part.category == category)
            matching.push_back(part);
    return matching;
}

std::optional<InterpretationTree> InterpretationTree::decode(std::string_view bytes) {
    const json payload = json::parse(bytes, nullptr, /*allow_exceptions=*/false);
    if (!payload.is_object())
        return std::nullopt;
    const auto tree = payload.find("tree");
    if (tree == payload.end() || !tree->is_object())
        return std::nullopt;
    const auto mode = tree->find("mode");
    const auto children = tree->find("children");
    if (mode == tree->end() || !mode->is_string() || children == tree->end() ||
        !children->is_array())
        return std::nullopt;

    InterpretationTree decoded{mode->get<std::string>(), {}};
    for (const auto& child : *children)
        if (isKind(child, "group"))
            decoded.groups.push_back(decodeGroup(child));
    return decoded;
}

} // namespace kelvo
