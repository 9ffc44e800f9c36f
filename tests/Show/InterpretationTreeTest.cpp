#include "Show/InterpretationTree.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

TEST(InterpretationTree, PayloadsOfTheWrongShapeDecodeToNothing) {
    for (const char* payload : {
             "", "[]", "{}", "nonsense", R"({"tree":[]})",
             R"({"tree":{"children":[]}})",            // no mode
             R"({"tree":{"mode":3,"children":[]}})",   // mode not a string
             R"({"tree":{"mode":"m"}})",               // no children
             R"({"tree":{"mode":"m","children":{}}})", // children not a list
         })
        EXPECT_EQ(InterpretationTree::decode(payload), std::nullopt) << payload;
}

TEST(InterpretationTree, DefaultsSkippedKindsAndRowMerging) {
    const auto tree = InterpretationTree::decode(R"({"tree":{"mode":"warm","children":[
        {"kind":"interpreter","label":"stray"},
        {"kind":"group","children":[
            {"kind":"interpreter","fixtures":["p1"]},
            {"kind":"interpreter","label":"Chase","category":"Animation","fixture_label":"Wash",
             "fixtures":["b","a"]},
            {"kind":"group","label":"nested","children":[]},
            {"kind":"interpreter","label":"Hue","category":"Color","fixture_label":"Other",
             "fixtures":["a","b"]},
            {"kind":"interpreter","label":7,"category":"Animation","fixtures":["a","b",3]},
            "junk"
        ]},
        {"kind":"group","label":"Empty"}
    ]}})");
    ASSERT_TRUE(tree);
    EXPECT_EQ(tree->modeId, "warm");
    ASSERT_EQ(tree->groups.size(), 2u);
    EXPECT_EQ(tree->groups[0].label, "ungrouped");
    EXPECT_EQ(tree->groups[1], (InterpretationGroup{"Empty", {}}));

    const auto& rows = tree->groups[0].rows;
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0], (InterpretationRow{{{"(unnamed)", "Animation"}}, "", {"p1"}}));
    // ["b","a"], ["a","b"] and ["a","b",3] (the number dropped) share one fixture set.
    EXPECT_EQ(rows[1].fixtureLabel, "Wash");
    EXPECT_EQ(rows[1].fixtureIds, (std::vector<std::string>{"b", "a"}));
    EXPECT_EQ(rows[1].label(), "Chase + Hue + (unnamed)");
    EXPECT_EQ(rows[1].partsIn("Color"), (std::vector<InterpretationLabelPart>{{"Hue", "Color"}}));
}

} // namespace
} // namespace kelvo
