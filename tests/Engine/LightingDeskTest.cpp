#include "Engine/LightingDesk.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

TEST(LightingDeskMerge, LiveDeskOwnsItsChannelsOfAFullUniverseScaledAndClamped) {
    LightingDeskState desk{.universe = 3, .levels = {1.0, 0.5, 7.0, -1.0}, .grandMaster = 0.5};
    const DmxFrame engine = {{1, {9}}};
    EXPECT_EQ(mergeLightingDesk(engine, desk), engine) << "not live: the engine alone";

    desk.live = true;
    const DmxFrame merged = mergeLightingDesk(engine, desk);
    ASSERT_EQ(merged.at(3).size(), 512u) << "a universe the engine does not feed";
    EXPECT_EQ(std::vector<int>(merged.at(3).begin(), merged.at(3).begin() + 5),
              (std::vector<int>{127, 63, 127, 0, 0}));
    EXPECT_EQ(merged.at(1), std::vector<std::uint8_t>{9});
    desk.grandMaster = 3.0;
    EXPECT_EQ(mergeLightingDesk({}, desk).at(3)[0], 255);
}

TEST(LightingDeskMerge, BlackoutGovernsOnlyTheFirst24Channels) {
    const LightingDeskState desk{
        .live = true, .levels = std::vector<double>(24, 1.0), .blackout = true};
    const auto channels = mergeLightingDesk({{1, std::vector<std::uint8_t>(600, 200)}}, desk).at(1);
    ASSERT_EQ(channels.size(), 512u) << "longer engine buffers are cut to one universe";
    for (std::size_t i = 0; i < 512; ++i)
        ASSERT_EQ(channels[i], i < 24 ? 0 : 200) << i;
}

} // namespace
} // namespace kelvo
