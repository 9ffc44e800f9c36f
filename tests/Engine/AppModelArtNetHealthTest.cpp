#include "support/AppModelRig.h"
#include "support/QtEventLoop.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

// The diagnosis and its repairs are the DMX tests', the fix button the panel's and adopting a
// real node's host the olad scenarios'; here, when the model starts and aims discovery.
class AppModelArtNetHealthTest : public testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override { test::qtApplication(); }
};

TEST_F(AppModelArtNetHealthTest, StartUpAimsAndStartsDiscoveryAfterTheEngineLoop) {
    auto model = makeModel();
    model->replaceRoutes({{1, UniverseRoute::Destination::artnet(0)}});
    model->setArtNetHost("10.0.0.5");
    model->setArtNetEnabled(true);
    model->bootstrap();
    EXPECT_TRUE(model->isEngineLoopRunning());
    EXPECT_EQ(discovery->starts, 1);
    EXPECT_EQ(discovery->targets.back(), "10.0.0.5");
    model->setArtNetEnabled(false);
    EXPECT_EQ(discovery->targets.back(), std::nullopt) << "switching off re-targets at once";
}

} // namespace
} // namespace kelvo
