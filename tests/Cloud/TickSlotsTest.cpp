#include "Cloud/TickSlots.h"
#include "support/QtEventLoop.h"

#include <gtest/gtest.h>

#include <string>

namespace kelvo {
namespace {

// Each piece records its name when its slot comes, waits for the next slot, records again.
QCoro::Task<> twoPieces(TickSlots& queue, std::string name, std::string& log,
                        CancellationToken cancel = {}) {
    try {
        QCoro::Task<> first = queue.next(cancel);
        co_await std::move(first);
        log += name;
        QCoro::Task<> second = queue.next(cancel);
        co_await std::move(second);
        log += name;
    } catch (const FlowCancelled&) {
        log += "cancelled(" + name + ")";
    }
}

TEST(TickSlots, WhileTickingOnePieceRunsAfterEachTickInOrderAndACancelledOneLeavesAtOnce) {
    test::qtApplication();
    bool ticking = true;
    TickSlots queue([&] { return ticking; });
    auto flow = std::make_shared<CancellationSource>();
    std::string log;
    QCoro::Task<> a = twoPieces(queue, "a", log);
    QCoro::Task<> c = twoPieces(queue, "c", log, CancellationToken(flow));
    QCoro::Task<> b = twoPieces(queue, "b", log);
    test::pumpFor(std::chrono::milliseconds(30));
    EXPECT_EQ(log, "") << "the event loop alone releases nothing while ticks come";
    flow->cancel();
    EXPECT_EQ(log, "cancelled(c)");
    for (const char* expected : {"a", "ab", "aba", "abab", "abab"}) { // c gave up its slot
        queue.tickFinished();
        EXPECT_EQ(log, "cancelled(c)" + std::string(expected));
    }
    EXPECT_EQ(queue.waiting(), 0u);
}

TEST(TickSlots, WithoutTicksPiecesRunFromTheEventLoop) {
    test::qtApplication();
    bool ticking = true;
    TickSlots queue([&] { return ticking; });
    std::string log;
    // Still said to tick, but no tick comes: the pieces do not wait for it.
    QCoro::Task<> a = twoPieces(queue, "a", log);
    EXPECT_TRUE(test::pumpUntil([&] { return log == "aa"; }));
    ticking = false; // the loop stopped
    QCoro::Task<> b = twoPieces(queue, "b", log);
    EXPECT_TRUE(test::pumpUntil([&] { return log == "aabb"; }));
}

} // namespace
} // namespace kelvo
