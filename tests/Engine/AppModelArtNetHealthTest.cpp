#include "support/AppModelRig.h"
#include "support/QtEventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using D = UniverseRoute::Destination;
using test::artnetNode;
using testing::ElementsAre;

class AppModelArtNetHealthTest : public testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override {
        test::qtApplication();
        model = makeModel();
        model->replaceRoutes({{1, D::enttec()}, {2, D::artnet(0)}, {3, D::artnet(1)}});
        model->setArtNetHost("10.0.0.5");
        model->setArtNetEnabled(true);
        QObject::connect(model.get(), &AppModel::artnetAutoFixApplied,
                         [this](const QString& text) { announced.push_back(text.toStdString()); });
    }

    /// A second later: more packets went out and discovery knows `nodes`.
    void tick(std::vector<ArtNetNode> nodes) {
        transportStatus.packetsSent += 120;
        discovery->state.heardAnyTraffic = true;
        discovery->state.nodes = ArtNetNodeList(std::move(nodes));
        model->refreshArtNetHealth();
    }

    std::unique_ptr<AppModel> model;
    std::vector<std::string> announced;
};

TEST_F(AppModelArtNetHealthTest, StartUpAimsAndStartsDiscoveryAfterTheEngineLoop) {
    model->bootstrap();
    EXPECT_TRUE(model->isEngineLoopRunning());
    EXPECT_EQ(discovery->starts, 1);
    EXPECT_EQ(discovery->targets.back(), "10.0.0.5");
    model->setArtNetEnabled(false);
    EXPECT_EQ(discovery->targets.back(), std::nullopt) << "switching off re-targets at once";
}

// Adopting the one answering node's host or universes, and saving them, is the olad
// scenarios' test (tests/integration/artnet); here, the switch that keeps the operator in charge.
TEST_F(AppModelArtNetHealthTest, WithAutoFixOffOnlyTheFixButtonRepairs) {
    model->setArtNetAutoFix(false);
    tick({artnetNode("10.0.0.9", {0, 1}, {0, 1})});
    EXPECT_EQ(model->artnetHost(), "10.0.0.5");
    model->applyArtNetFix();
    EXPECT_EQ(model->artnetHost(), "10.0.0.9");
    EXPECT_EQ(model->artnetLastAutoFix(), "Point Art-Net output at 10.0.0.9");
    EXPECT_TRUE(announced.empty());
    EXPECT_FALSE(model->outputSettingsStore().loadArtNetAutoFix().value());
}

} // namespace
} // namespace kelvo
