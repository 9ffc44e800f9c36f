#include "Engine/LightingDesk.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

TEST(LightingDeskMerge, NotLiveLeavesTheEngineAlone) {
    const DmxFrame engine = {{1, {1, 2, 3}}};
    LightingDeskState desk;
    desk.levels.assign(24, 1.0);
    EXPECT_EQ(mergeLightingDesk(engine, desk), engine);
}

TEST(LightingDeskMerge, DeskOnAUniverseTheEngineDoesNotFeed) {
    LightingDeskState desk;
    desk.live = true;
    desk.universe = 3;
    desk.levels = {1.0, 0.5};
    const DmxFrame merged = mergeLightingDesk({{1, {9}}}, desk);
    ASSERT_EQ(merged.at(3).size(), 512u);
    EXPECT_EQ(merged.at(3)[0], 255);
    EXPECT_EQ(merged.at(3)[1], 127);
    EXPECT_EQ(merged.at(3)[2], 0);
    EXPECT_EQ(merged.at(1), std::vector<std::uint8_t>{9});
}

TEST(LightingDeskMerge, GrandMasterScalesAndValuesClamp) {
    LightingDeskState desk;
    desk.live = true;
    desk.grandMaster = 0.5;
    desk.levels.assign(24, 1.0);
    desk.levels[1] = 7.0;
    desk.levels[2] = -1.0;
    const auto channels = mergeLightingDesk({}, desk).at(1);
    EXPECT_EQ(channels[0], 127);
    EXPECT_EQ(channels[1], 127);
    EXPECT_EQ(channels[2], 0);
    desk.grandMaster = 3.0;
    EXPECT_EQ(mergeLightingDesk({}, desk).at(1)[0], 255);
}

TEST(LightingDeskMerge, BlackoutGovernsOnlyTheFirst24Channels) {
    std::vector<std::uint8_t> engine(600, 200);
    LightingDeskState desk;
    desk.live = true;
    desk.blackout = true;
    desk.levels.assign(24, 1.0);
    const auto channels = mergeLightingDesk({{1, engine}}, desk).at(1);
    ASSERT_EQ(channels.size(), 512u) << "longer engine buffers are cut to one universe";
    for (std::size_t i = 0; i < 24; ++i)
        ASSERT_EQ(channels[i], 0) << i;
    EXPECT_EQ(channels[24], 200);
    EXPECT_EQ(channels[29], 200);
    EXPECT_EQ(channels[511], 200);
}

} // namespace
} // namespace kelvo
