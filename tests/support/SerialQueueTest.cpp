#include "Support/SerialQueue.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace kelvo {
namespace {

TEST(SerialQueue, RunsTasksInOrderAndFinishesThemBeforeJoining) {
    std::vector<int> order;
    {
        SerialQueue queue("kelvo.test");
        bool onQueue = false;
        queue.sync([&] { onQueue = queue.isCurrent(); });
        EXPECT_TRUE(onQueue);
        EXPECT_FALSE(queue.isCurrent());
        for (int i = 0; i < 200; ++i)
            queue.async([&order, i] { order.push_back(i); });
    }
    std::vector<int> expected(200);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
}

} // namespace
} // namespace kelvo
