#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What the harness currently animates, grouped for the interpretation screen.
namespace kelvo {

struct InterpretationLabelPart {
    std::string label;    // the interpreter's name
    std::string category; // e.g. "Animation"
    bool operator==(const InterpretationLabelPart&) const = default;
};

struct InterpretationRow {
    std::vector<InterpretationLabelPart> parts;
    std::string fixtureLabel;
    std::vector<std::string> fixtureIds;

    std::string fixtureKey() const; // sorted ids joined by a line feed
    std::string label() const;      // part labels joined by " + "
    std::string id() const;         // fixture key, unit separator, label
    std::vector<InterpretationLabelPart> partsIn(std::string_view category) const;

    bool operator==(const InterpretationRow&) const = default;
};

struct InterpretationGroup {
    std::string label;
    std::vector<InterpretationRow> rows;
    bool operator==(const InterpretationGroup&) const = default;
};

struct InterpretationTree {
    std::string modeId;
    std::vector<InterpretationGroup> groups;

    // Nothing when the payload is not {"tree":{"mode":string,"children":[...]}}. Never throws.
    static std::optional<InterpretationTree> decode(std::string_view bytes);

    bool operator==(const InterpretationTree&) const = default;
};

} // namespace kelvo
