#include "Cloud/TickSlots.h"
#include "support/QtEventLoop.h"

#include <gtest/gtest.h>

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

TEST(TickSlots, OnePieceRunsPerTickInOrderCancelledOnesLeaveAndWithoutTicksTheLoopRunsThem) {
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

    // Still said to tick, but no tick comes: the pieces do not wait for it.
    log.clear();
    QCoro::Task<> d = twoPieces(queue, "d", log);
    EXPECT_TRUE(test::pumpUntil([&] { return log == "dd"; }));
    ticking = false; // the loop stopped
    QCoro::Task<> e = twoPieces(queue, "e", log);
    EXPECT_TRUE(test::pumpUntil([&] { return log == "ddee"; }));
}

} // namespace
} // namespace kelvo
