#include "Cloud/DisconnectNotifier.h"
#include "Cloud/QtURLSession.h"
#include "DMX/NWUDPSocket.h"
#include "support/AppModelRig.h"
#include "support/DevCloudProcess.h"
#include "support/HeadlessBrowser.h"
#include "support/LoopbackReceiver.h"
#include "support/QtEventLoop.h"
#include "support/RequiredTool.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <gtest/gtest.h>

#include <algorithm>

namespace kelvo {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

const std::string deviceToken = "dev-token";

/// Art-Net aimed at a loopback receiver's own port: nothing ever goes to 6454 here.
class LoopbackArtNet final : public UDPSending {
public:
    explicit LoopbackArtNet(std::uint16_t port) : port_(port) {}
    void send(std::span<const std::uint8_t> datagram, const std::string& host,
              std::uint16_t) override {
        socket_.send(datagram, host, port_);
    }

private:
    std::uint16_t port_;
    NWUDPSocket socket_;
};

/// The channel data of an ArtDmx for port-address 0, else nothing.
std::optional<std::vector<std::uint8_t>> universeZeroData(const std::vector<std::uint8_t>& d) {
    static const std::uint8_t header[] = {'A', 'r', 't', '-', 'N', 'e', 't', 0, 0x00, 0x50};
    if (d.size() < 18 || !std::equal(std::begin(header), std::end(header), d.begin()) ||
        d[14] != 0 || d[15] != 0)
        return std::nullopt;
    return std::vector<std::uint8_t>(d.begin() + 18, d.end());
}

/// A bridge linked to a kelvo-devcloud on loopback, its socket open.
class LiveControlCloudTest : public ::testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override {
        test::qtApplication();
        network = std::make_unique<QNetworkAccessManager>();
    }

    void link(std::vector<std::string> cloudOptions = {}) {
        cloudOptions.insert(cloudOptions.begin(), {"--state", (dir / "cloud-state.json").string(),
                                                   "--device-token", deviceToken});
        cloud = std::make_unique<test::DevCloudProcess>(KELVO_DEVCLOUD, cloudOptions,
                                                        dir / "cloud.log");
        ASSERT_TRUE(cloud->running()) << cloud->output();
        serverURL = QUrl(QString::fromStdString(cloud->baseUrl()));
        http = std::make_shared<QtURLSession>();
        leaving = std::make_shared<ThreadedDisconnectNotifier>();
        model = makeModel();
        model->settings().saveAuthToken(deviceToken, serverURL);
        model->bootstrap();
        model->autoConnect();
        ASSERT_TRUE(test::pumpUntil(
            [&] {
                return model->connectionStatus() == ConnectionStatus::connected &&
                       model->showUpdatesChannel()->isOpen();
            },
            20s))
            << model->statusMessage().toStdString() << cloud->output();
    }

    /// A change made on the control page, as another operator's browser makes it.
    void changeFromControlPage(const json& fields) {
        QNetworkRequest request(
            QUrl(QString::fromStdString(cloud->baseUrl() + "/control/control-state")));
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
        std::unique_ptr<QNetworkReply> reply(
            network->post(request, QByteArray::fromStdString(fields.dump())));
        ASSERT_TRUE(test::pumpUntil([&] { return reply->isFinished(); }));
        ASSERT_EQ(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 204);
    }

    /// Waits until the pushed state carrying `theme` has been applied.
    bool themeArrives(const std::string& theme) {
        return test::pumpUntil([&] { return model->selectedThemeName() == theme; }, 10s);
    }

    std::unique_ptr<QNetworkAccessManager> network;
    std::unique_ptr<test::DevCloudProcess> cloud;
    std::unique_ptr<AppModel> model;
};

TEST_F(LiveControlCloudTest,
       ALocalModePickRacingARemoteStateKeepsTheLocalPickForSixTenthsOfASecond) {
    // The cloud takes its time with the pick, so the other operator's change crosses it.
    link({"--fault", "api/control-state:delay=800"});
    model->selectLightingBlend({"chase", std::nullopt, 0});
    EXPECT_TRUE(model->isUpdatingControl());

    changeFromControlPage({{"mode", "strobe"}, {"theme_name", "Sunset"}});
    ASSERT_TRUE(themeArrives("Sunset"));
    EXPECT_EQ(model->selectedModeId(), "chase") << "the pick in flight wins";

    ASSERT_TRUE(test::pumpUntil([&] { return !model->isUpdatingControl(); }, 10s));
    EXPECT_EQ(model->statusMessage(), "");
    clock->advance(300ms); // the send is done, the window still open
    changeFromControlPage({{"mode", "cycle"}, {"theme_name", "Rave"}});
    ASSERT_TRUE(themeArrives("Rave"));
    EXPECT_EQ(model->selectedModeId(), "chase") << "the window still owns the mode";

    clock->advance(310ms);
    changeFromControlPage({{"mode", "party"}, {"theme_name", "Sunset"}});
    ASSERT_TRUE(themeArrives("Sunset"));
    EXPECT_EQ(model->selectedModeId(), "party") << "after 0.6 s the cloud has its say again";
}

TEST_F(LiveControlCloudTest, APickTheCloudRefusesReturnsToItsChoiceAndSaysWhy) {
    link({"--fault", "api/control-state:status=409,times=1"});
    const std::string before = model->selectedModeId();
    model->selectLightingBlend({"strobe", std::nullopt, 0});
    ASSERT_TRUE(test::pumpUntil([&] { return !model->isUpdatingControl(); }, 10s));
    EXPECT_EQ(model->statusMessage(), "Couldn’t switch mode: Server returned HTTP 409");
    EXPECT_EQ(model->selectedModeId(), before);

    clock->advance(1s);
    model->selectTheme("Sunset");
    ASSERT_TRUE(test::pumpUntil([&] { return !model->isUpdatingControl(); }, 10s));
    EXPECT_EQ(model->statusMessage(), "Couldn’t switch mode: Server returned HTTP 409")
        << "a colour scheme going through leaves the mode complaint standing";
    model->selectLightingBlend({"strobe", std::nullopt, 0});
    ASSERT_TRUE(test::pumpUntil([&] { return !model->isUpdatingControl(); }, 10s));
    EXPECT_EQ(model->statusMessage(), "") << "the next pick that goes through clears it";
}

TEST_F(LiveControlCloudTest, AModeClickedOnTheControlPageChangesTheArtDmxOutput) {
    KELVO_REQUIRE_TOOL(test::HeadlessBrowser::available(), "chromium is not installed");
    test::LoopbackReceiver node;
    artnetTransport = std::make_shared<LoopbackArtNet>(node.port());
    link();
    model->setArtNetEnabled(true);
    model->setArtNetHost(QStringLiteral("127.0.0.1"));
    model->replaceRoutes({{1, UniverseRoute::Destination::artnet(0)}});

    // True once a frame sent after the model took `mode` satisfies `wanted`.
    const auto tickUntil =
        [&](const std::string& mode,
            const std::function<bool(const std::vector<std::uint8_t>&)>& wanted) {
            const auto deadline = std::chrono::steady_clock::now() + 15s;
            while (std::chrono::steady_clock::now() < deadline) {
                const bool applied = model->selectedModeId() == mode;
                if (backend->last)
                    backend->last->deliver(std::vector<float>(2 * 512, 0.25f));
                clock->advance(16ms);
                model->tick();
                test::pumpFor(16ms);
                while (const auto datagram = node.receive(0))
                    if (const auto data = universeZeroData(*datagram);
                        applied && data && wanted(*data))
                        return true;
            }
            return false;
        };
    const auto lit = [](const std::vector<std::uint8_t>& data) {
        return std::any_of(data.begin(), data.end(), [](std::uint8_t v) { return v > 0; });
    };

    test::HeadlessBrowser browser(dir / "chromium-profile");
    ASSERT_TRUE(browser.attach());
    browser.open(QUrl(QString::fromStdString(cloud->baseUrl() + "/control")));
    ASSERT_TRUE(browser.waitUntil(
        QStringLiteral("!!document.querySelector('#mode option[value=\"blackout\"]')")));
    const auto pick = [&](const char* mode) {
        browser.evaluate(QStringLiteral("(() => { const s = document.getElementById('mode'); "
                                        "s.value = '%1'; s.dispatchEvent(new Event('change')); "
                                        "return true; })()")
                             .arg(QLatin1String(mode)));
    };
    const auto dark = [&](const std::vector<std::uint8_t>& data) { return !lit(data); };
    pick("blackout");
    ASSERT_TRUE(tickUntil("blackout", dark)) << "the blackout clicked in the browser";
    pick("static");
    ASSERT_TRUE(tickUntil("static", lit)) << "a wash clicked in the browser lights universe 1";
    pick("blackout");
    ASSERT_TRUE(tickUntil("blackout", dark)) << "and the blackout darkens it again";
}

} // namespace
} // namespace kelvo
