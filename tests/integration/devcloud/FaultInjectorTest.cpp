#include "FaultInjector.h"

#include <gtest/gtest.h>

namespace kelvo::devcloud {
namespace {

TEST(FaultInjector, ReadsSpecsAndExplainsBadOnes) {
    struct Case {
        const char* spec;
        std::optional<Fault> fault;
    };
    const std::vector<Case> cases{
        {"delay=250", Fault{.delayMs = 250}},
        {"drop", Fault{.drop = true}},
        {"status=503,times=2", Fault{.status = 503, .remaining = 2}},
        {"delay=100, drop", Fault{.delayMs = 100, .drop = true}},
        {"status=99", std::nullopt},
        {"status=600", std::nullopt},
        {"delay=-1", std::nullopt},
        {"drop=1", std::nullopt},
        {"times=2", std::nullopt},
        {"", std::nullopt},
        {"wobble", std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.spec);
        const auto parsed = FaultInjector::parseSpec(QString::fromUtf8(c.spec));
        if (c.fault)
            EXPECT_EQ(std::get<Fault>(parsed), *c.fault);
        else
            EXPECT_TRUE(std::holds_alternative<QString>(parsed));
    }
}

TEST(FaultInjector, MatchesExactOrPrefixPathsTheLatestRuleFirst) {
    // Counting down and clearing are met through the server's own tests.
    FaultInjector faults;
    EXPECT_FALSE(faults.addFromArgument(QStringLiteral("api/shows/*:status=500")));
    EXPECT_FALSE(faults.addFromArgument(QStringLiteral("/api/config:drop")));
    EXPECT_TRUE(faults.addFromArgument(QStringLiteral("api/config")));
    EXPECT_FALSE(faults.take(QStringLiteral("/api/showsX")));
    EXPECT_FALSE(faults.take(QStringLiteral("/api/config/more")));
    EXPECT_TRUE(faults.take(QStringLiteral("/api/config"))->drop);
    faults.set(QStringLiteral("*"), Fault{.delayMs = 5});
    EXPECT_EQ(faults.take(QStringLiteral("/api/shows/a"))->delayMs, 5);
}

} // namespace
} // namespace kelvo::devcloud
