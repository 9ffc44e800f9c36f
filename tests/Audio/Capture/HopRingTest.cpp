#include "Audio/Capture/HopRing.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

// Hop n carries n in its low level and in every sample, so a torn or reordered hop shows.
void pushNumbered(HopRing& ring, int n) {
    const std::vector<float> samples(512, static_cast<float>(n));
    ring.push({double(n), 0, 0, 0, 0, 0}, samples);
}

TEST(HopRing, AnOverflowDropsWhatIsQueuedRatherThanFeedStaleAudio) {
    HopRing ring(48000, 512);
    ASSERT_EQ(ring.capacity(), 256u) << "two seconds of 48 kHz hops, rounded up";
    for (int n = 0; n < 300; ++n)
        pushNumbered(ring, n);
    std::vector<MicHop> taken;
    EXPECT_EQ(ring.takeInto(taken), 300u);
    EXPECT_TRUE(taken.empty());

    for (int n = 0; n < 3; ++n)
        pushNumbered(ring, n);
    EXPECT_EQ(ring.takeInto(taken), 0u);
    ASSERT_EQ(taken.size(), 3u);
    EXPECT_EQ(taken[2].levels.low, 2.0);
    EXPECT_DOUBLE_EQ(taken[2].dt, 512.0 / 48000);
    EXPECT_EQ(taken[2].sampleRate, 48000);
}

} // namespace
} // namespace kelvo
