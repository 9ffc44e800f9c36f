#include "support/ChildProcess.h"
#include "support/DevCloudProcess.h"
#include "support/FileBytes.h"
#include "support/SoundFile.h"
#include "support/TemporaryDirectory.h"

#include <QSettings>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <regex>

namespace kelvo {
namespace {

/// The headless program as an operator runs it on a venue server, against a dev cloud that
/// approves by itself: the approval page is printed on its own line, the bridge connects, and
/// --sign-out forgets the link.
class HeadlessPairingTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (char** variable = environ; *variable; ++variable)
            if (!std::string(*variable).starts_with("XDG_"))
                environment.push_back(*variable);
        environment.push_back("XDG_DATA_HOME=" + (dir / "data").string());
        environment.push_back("XDG_CONFIG_HOME=" + (dir / "config").string());
        std::vector<float> tone(44100 * 2);
        for (std::size_t i = 0; i < tone.size(); ++i)
            tone[i] = 0.3f * float(std::sin(double(i) * 0.05));
        ASSERT_TRUE(test::writeSoundFile(dir / "tone.wav", tone, 44100, 1,
                                         SF_FORMAT_WAV | SF_FORMAT_FLOAT));
    }

    /// Runs the bridge to its end; what it printed.
    std::string runBridge(std::vector<std::string> options) {
        std::vector<std::string> arguments{KELVO_BRIDGE};
        arguments.insert(arguments.end(), options.begin(), options.end());
        std::vector<char*> env;
        for (std::string& variable : environment)
            env.push_back(variable.data());
        env.push_back(nullptr);
        const std::string output = (dir / "bridge.log").string();
        const pid_t pid = test::spawnWithOutput(KELVO_BRIDGE, arguments, output, env.data());
        EXPECT_EQ(test::waitForExit(pid), 0);
        return test::readText(output);
    }

    std::string storedToken(const std::string& server) {
        QSettings settings(QString::fromStdString((dir / "config/Kelvo/KelvoBridge.conf").string()),
                           QSettings::IniFormat);
        return settings.value(QString::fromStdString("kelvo.bridge.device_token." + server))
            .toString()
            .toStdString();
    }

    test::TemporaryDirectory dir;
    std::vector<std::string> environment;
};

TEST_F(HeadlessPairingTest, PairPrintsTheApprovalPageThenConnectsAndSignOutForgets) {
    test::DevCloudProcess cloud(KELVO_DEVCLOUD,
                                {"--state", (dir / "cloud.json").string(), "--auto-approve"},
                                dir / "cloud.log");
    ASSERT_TRUE(cloud.running()) << cloud.output();
    const std::string printed = runBridge({"--headless", "--server", cloud.baseUrl(), "--pair",
                                           "--audio-file", (dir / "tone.wav").string(), "--artnet",
                                           "off", "--enttec", "off", "--run-seconds", "6"});
    const std::regex page("Open this page on any device to approve the bridge:\n" +
                          cloud.baseUrl() + "/pair\\?code=[A-Z0-9-]+\n");
    EXPECT_TRUE(std::regex_search(printed, page)) << printed;
    EXPECT_NE(printed.find("· cloud connected"), std::string::npos) << printed;
    EXPECT_TRUE(std::filesystem::exists(dir / "data/KelvoBridge/engine.js")) << "downloaded";
    EXPECT_FALSE(storedToken(cloud.baseUrl()).empty());
    EXPECT_EQ(printed.find(storedToken(cloud.baseUrl())), std::string::npos)
        << "the token never reaches the output";

    const std::string signedOut = runBridge({"--server", cloud.baseUrl(), "--sign-out"});
    EXPECT_NE(signedOut.find("Signed out of " + cloud.baseUrl()), std::string::npos) << signedOut;
    EXPECT_TRUE(storedToken(cloud.baseUrl()).empty());
}

} // namespace
} // namespace kelvo
