#include "PairingRegistry.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

namespace kelvo::devcloud {
namespace {

TEST(PairingRegistry, ApprovedCodesCompleteDeniedAndLateOnesExpireThenAreForgotten) {
    QDateTime now = QDateTime(QDate(2025, 5, 1), QTime(20, 0), Qt::UTC);
    int issued = 0;
    PairingRegistry registry{600, [&] { return now; },
                             [&] { return QStringLiteral("CODE-%1").arg(++issued); }};
    const auto statusOf = [&](const QString& code) { return registry.status(code).status; };
    const auto approved = registry.start();
    const QString denied = registry.start().code;
    const QString late = registry.start().code;
    EXPECT_EQ(approved.expiresAt, now.addSecs(600));
    EXPECT_EQ(statusOf(late), PairingStatus::pending);
    EXPECT_TRUE(registry.approve(approved.code, QStringLiteral("kdt_1")));
    EXPECT_FALSE(registry.approve(approved.code, QStringLiteral("kdt_2")));
    EXPECT_FALSE(registry.deny(approved.code));
    EXPECT_EQ(registry.status(approved.code).deviceToken, QStringLiteral("kdt_1"));
    EXPECT_EQ(statusOf(approved.code), PairingStatus::complete);
    EXPECT_TRUE(registry.deny(denied));
    EXPECT_EQ(statusOf(denied), PairingStatus::expired);

    now = now.addSecs(600);
    EXPECT_EQ(statusOf(approved.code), PairingStatus::expired);
    EXPECT_EQ(statusOf(late), PairingStatus::expired);
    EXPECT_FALSE(registry.approve(late, QStringLiteral("kdt_1")));
    now = now.addSecs(599);
    EXPECT_EQ(statusOf(denied), PairingStatus::expired);
    now = now.addSecs(1);
    EXPECT_EQ(statusOf(denied), PairingStatus::unknown);
    EXPECT_EQ(statusOf(late), PairingStatus::unknown);
    EXPECT_EQ(statusOf(QStringLiteral("NEVER")), PairingStatus::unknown);

    EXPECT_TRUE(QRegularExpression(QStringLiteral("^[A-HJ-NP-Z2-9]{4}-[A-HJ-NP-Z2-9]{4}$"))
                    .match(PairingRegistry::randomCode())
                    .hasMatch())
        << "eight characters without look-alikes";
}

} // namespace
} // namespace kelvo::devcloud
