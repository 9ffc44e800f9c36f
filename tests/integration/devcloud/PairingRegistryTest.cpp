#include "PairingRegistry.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

namespace kelvo::devcloud {
namespace {

class PairingRegistryTest : public testing::Test {
protected:
    QDateTime now = QDateTime(QDate(2025, 5, 1), QTime(20, 0), Qt::UTC);
    int issued = 0;
    PairingRegistry registry{600, [this] { return now; },
                             [this] { return QStringLiteral("CODE-%1").arg(++issued); }};

    PairingStatus statusOf(const QString& code) { return registry.status(code).status; }
};

TEST_F(PairingRegistryTest, ApprovalCompletesWithTheTokenUntilTheCodeExpires) {
    const auto started = registry.start();
    EXPECT_EQ(started.expiresAt, now.addSecs(600));
    EXPECT_EQ(statusOf(started.code), PairingStatus::pending);
    EXPECT_TRUE(registry.approve(started.code, QStringLiteral("kdt_1")));
    EXPECT_FALSE(registry.approve(started.code, QStringLiteral("kdt_2")));
    EXPECT_FALSE(registry.deny(started.code));
    const auto answer = registry.status(started.code);
    EXPECT_EQ(answer.status, PairingStatus::complete);
    EXPECT_EQ(answer.deviceToken, QStringLiteral("kdt_1"));
    now = now.addSecs(600);
    EXPECT_EQ(statusOf(started.code), PairingStatus::expired);
}

TEST_F(PairingRegistryTest, DeniedAndLateCodesAnswerExpiredThenUnknown) {
    const QString denied = registry.start().code;
    const QString late = registry.start().code;
    EXPECT_TRUE(registry.deny(denied));
    EXPECT_EQ(statusOf(denied), PairingStatus::expired);
    EXPECT_EQ(statusOf(late), PairingStatus::pending);
    now = now.addSecs(600);
    EXPECT_EQ(statusOf(late), PairingStatus::expired);
    EXPECT_FALSE(registry.approve(late, QStringLiteral("kdt_1")));
    now = now.addSecs(599);
    EXPECT_EQ(statusOf(denied), PairingStatus::expired);
    now = now.addSecs(1);
    EXPECT_EQ(statusOf(denied), PairingStatus::unknown);
    EXPECT_EQ(statusOf(late), PairingStatus::unknown);
    EXPECT_EQ(statusOf(QStringLiteral("NEVER")), PairingStatus::unknown);
}

TEST(PairingCode, IsEightCharactersWithoutLookAlikes) {
    const QString code = PairingRegistry::randomCode();
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^[A-HJ-NP-Z2-9]{4}-[A-HJ-NP-Z2-9]{4}$"))
                    .match(code)
                    .hasMatch())
        << code.toStdString();
}

} // namespace
} // namespace kelvo::devcloud
