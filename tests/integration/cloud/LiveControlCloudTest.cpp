#include "Cloud/DisconnectNotifier.h"
#include "Cloud/QtURLSession.h"
#include "support/AppModelRig.h"
#include "support/DevCloudProcess.h"
#include "support/HeadlessBrowser.h"
#include "support/QtEventLoop.h"
#include "support/RequiredTool.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using namespace std::chrono_literals;

/// A bridge linked to a kelvo-devcloud on loopback, its socket open, and the cloud's control page
/// in a real browser. The pick-versus-push rules are LiveControl's; here a click must arrive.
class LiveControlCloudTest : public ::testing::Test, protected test::AppModelRig {};

TEST_F(LiveControlCloudTest, AModeClickedOnTheControlPageReachesTheBridge) {
    KELVO_REQUIRE_TOOL(test::HeadlessBrowser::available(), "chromium is not installed");
    test::qtApplication();
    test::DevCloudProcess cloud(
        KELVO_DEVCLOUD, {"--state", (dir / "cloud-state.json").string(), "--device-token", "tok"},
        dir / "cloud.log");
    ASSERT_TRUE(cloud.running()) << cloud.output();
    serverURL = QUrl(QString::fromStdString(cloud.baseUrl()));
    http = std::make_shared<QtURLSession>();
    leaving = std::make_shared<ThreadedDisconnectNotifier>();
    auto model = makeModel();
    model->settings().saveAuthToken("tok", serverURL);
    model->bootstrap();
    model->autoConnect();
    ASSERT_TRUE(test::pumpUntil(
        [&] {
            return model->connectionStatus() == ConnectionStatus::connected &&
                   model->showUpdatesChannel()->isOpen();
        },
        20s))
        << model->statusMessage().toStdString() << cloud.output();

    test::HeadlessBrowser browser(dir / "chromium-profile");
    ASSERT_TRUE(browser.attach());
    browser.open(QUrl(QString::fromStdString(cloud.baseUrl() + "/control")));
    ASSERT_TRUE(browser.waitUntil(
        QStringLiteral("!!document.querySelector('#mode option[value=\"blackout\"]')")));
    for (const char* mode : {"blackout", "static", "blackout"}) {
        browser.evaluate(QStringLiteral("(() => { const s = document.getElementById('mode'); "
                                        "s.value = '%1'; s.dispatchEvent(new Event('change')); "
                                        "return true; })()")
                             .arg(QLatin1String(mode)));
        EXPECT_TRUE(test::pumpUntil([&] { return model->selectedModeId() == mode; }, 15s))
            << mode << " clicked in the browser";
    }
}

} // namespace
} // namespace kelvo
