#include "Cloud/ShowUpdateMessage.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using namespace show_update;
using nlohmann::json;

TEST(ShowUpdateMessage, DecodingRuleTableAndDroppedFrames) {
    struct Case {
        const char* text;
        std::optional<ShowUpdateMessage> expected;
    };
    const json control = {{"mode_id", "m1"}, {"mode_lerp", 0.5}};
    const Case cases[] = {
        // Not a typed object: dropped.
        {"not json", std::nullopt},
        {R"({"type":7,"data":{}})", std::nullopt},
        {R"({"type":"force_drop","data":{"active":true})", std::nullopt}, // truncated
        // bootstrap: any data, re-serialised; none at all is ignored.
        {R"({"type":"bootstrap","data":{"shows": [1, 2]}})", Bootstrap{R"({"shows":[1,2]})"}},
        {R"({"type":"bootstrap"})", Ignored{}},
        // control_state / show_snapshot: objects only.
        {R"({"type":"control_state","data":{"mode_id":"m1","mode_lerp":0.5}})",
         ControlState{control}},
        {R"({"type":"show_snapshot","data":{"id":"s"}})", ShowSnapshot{json{{"id", "s"}}}},
        // show_changed: an integer revision or none at all.
        {R"({"type":"show_changed","data":{"revision":12}})", ShowChanged{12}},
        {R"({"type":"show_changed","data":{}})", ShowChanged{}},
        {R"({"type":"show_changed","data":{"revision":"12"}})", ShowChanged{}},
        {R"({"type":"show_changed","data":{"revision":18446744073709551615}})", ShowChanged{}},
        {R"({"type":"shared_catalog_changed"})", ShowChanged{}},
        // force_drop: a boolean "active" or nothing happens.
        {R"({"type":"force_drop","data":{"active":true}})", ForceDrop{true}},
        {R"({"type":"force_drop","data":{"active":1}})", Ignored{}},
        // The shifts need no data at all.
        {R"({"type":"shift_lighting_only"})", ShiftLightingOnly{}},
        {R"({"type":"shift_color_scheme"})", ShiftColorScheme{}},
        // Unknown or differently spelled types.
        {R"({"type":"Force_Drop","data":{"active":true}})", Ignored{}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(decodeShowUpdateMessage(c.text), c.expected) << c.text;

    std::string padded = R"({"type":"shift_color_scheme","data":")";
    const std::string tail = "\"}";
    padded.append(kMaxShowUpdateFrameBytes - padded.size() - tail.size(), 'x');
    padded += tail;
    ASSERT_EQ(padded.size(), kMaxShowUpdateFrameBytes);
    EXPECT_EQ(decodeShowUpdateMessage(padded), ShowUpdateMessage(ShiftColorScheme{}));
    padded.insert(padded.size() - tail.size(), "x");
    EXPECT_EQ(decodeShowUpdateMessage(padded), std::nullopt);

    const auto nestedBootstrap = [](std::size_t depth) {
        return R"({"type":"bootstrap","data":)" + std::string(depth, '[') +
               std::string(depth, ']') + "}";
    };
    EXPECT_TRUE(decodeShowUpdateMessage(nestedBootstrap(255)).has_value());
    EXPECT_EQ(decodeShowUpdateMessage(nestedBootstrap(256)), std::nullopt);
    // Brackets and escaped quotes inside strings don't count.
    EXPECT_EQ(decodeShowUpdateMessage(R"({"type":"bootstrap","data":"[[[\"[["})"),
              ShowUpdateMessage(Bootstrap{R"("[[[\"[[")"}));
}

} // namespace
} // namespace kelvo
