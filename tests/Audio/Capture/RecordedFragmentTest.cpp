#include "Audio/Capture/RecordedFragment.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

// Fragments as a record stream hands them over (hole: no data), and the pieces that reach the
// receiver: a hole is silence of its full length, so a recording keeps real time.
TEST(RecordedFragment, AudioPassesAsItCameAndAHoleIsSilenceOfItsLength) {
    const std::vector<float> audio = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f};
    const std::vector<float> silence(512 * 2, 0.0f);
    const struct {
        const float* data;
        std::size_t bytes;
        std::vector<std::uint32_t> pieces;
    } cases[] = {
        {audio.data(), 6 * sizeof(float) + 3, {3}}, // a torn frame at the end is dropped
        {nullptr, 1300 * 2 * sizeof(float), {512, 512, 276}},
        {nullptr, 2 * sizeof(float) - 1, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        std::vector<std::uint32_t> pieces;
        deliverRecordedFragment(c.data, c.bytes, 2, silence,
                                [&](AudioBufferListView list, std::uint32_t frames) {
                                    ASSERT_EQ(list.size(), 1u);
                                    EXPECT_EQ(list[0].numberChannels, 2u);
                                    EXPECT_EQ(list[0].data, c.data ? c.data : silence.data());
                                    pieces.push_back(frames);
                                });
        EXPECT_EQ(pieces, c.pieces);
    }
}

} // namespace
} // namespace kelvo
