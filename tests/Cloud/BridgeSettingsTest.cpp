#include "Cloud/BridgeSettings.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace kelvo {
namespace {

const QUrl production("https://cloud.example.com");
const QUrl local("http://127.0.0.1:4041/");

class BridgeSettingsTest : public ::testing::Test {
protected:
    QString path() const { return temp.filePath("config/Kelvo/KelvoBridge.conf"); }
    std::unique_ptr<BridgeSettings> open() {
        return std::make_unique<BridgeSettings>(
            std::make_unique<QSettings>(path(), QSettings::IniFormat), production);
    }
    /// The file as another reader sees it, once the writes under way are done.
    std::unique_ptr<QSettings> file(BridgeSettings* settings = nullptr) {
        if (settings)
            settings->flush();
        return std::make_unique<QSettings>(path(), QSettings::IniFormat);
    }
    /// Writes the file by hand, as an operator editing it would.
    void handEdit(const QString& key, const QVariant& value) { file()->setValue(key, value); }

    mode_t fileMode(const QString& name) const {
        struct stat info {};
        return ::stat(QFile::encodeName(name).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
    }

    QTemporaryDir temp;
};

TEST_F(BridgeSettingsTest, OutputValuesDistinguishNeverWrittenAndReachTheFile) {
    auto settings = open();
    EXPECT_EQ(settings->loadEnttecEnabled(), std::nullopt);
    settings->saveEnttecEnabled(false);
    EXPECT_EQ(settings->loadEnttecEnabled(), false) << "served at once, before the disk";
    settings.reset(); // writes what is pending
    EXPECT_EQ(open()->loadEnttecEnabled(), false);
}

TEST_F(BridgeSettingsTest, TokensAreKeptPerServerUnderNormalisedKeys) {
    EXPECT_EQ(BridgeSettings::tokenKey(local), "kelvo.bridge.device_token.http://127.0.0.1:4041");
    auto settings = open();
    const QUrl staging("https://staging.example.com");
    const QUrl nested("https://staging.example.com/eu");
    settings->saveAuthToken("local-token", local);
    settings->saveAuthToken("staging-token", staging);
    settings->saveAuthToken("nested-token", nested);
    EXPECT_EQ(settings->authToken(QUrl("HTTP://127.0.0.1:4041")), "local-token");
    EXPECT_EQ(settings->authToken(QUrl("https://STAGING.example.com///")), "staging-token");

    // A server whose address continues another's keeps its own token, also in the file.
    settings->clearAuthToken(staging);
    EXPECT_EQ(settings->authToken(staging), std::nullopt);
    EXPECT_EQ(settings->authToken(nested), "nested-token");
    settings.reset();
    auto reopened = open();
    EXPECT_EQ(reopened->authToken(staging), std::nullopt);
    EXPECT_EQ(reopened->authToken(nested), "nested-token");

    reopened->saveAuthToken("", local);
    EXPECT_EQ(reopened->authToken(local), std::nullopt) << "empty counts as none";
}

TEST_F(BridgeSettingsTest, LegacyTokenMovesToTheProductionServerOnceAndGoesWithIt) {
    handEdit(BridgeSettings::legacyTokenKey, "legacy");
    handEdit(BridgeSettings::tokenKey(production), ""); // an empty per-server value is no token
    auto settings = open();
    EXPECT_EQ(settings->authToken(local), std::nullopt);
    EXPECT_EQ(settings->authToken(QUrl("https://cloud.example.com.evil.net")), std::nullopt);
    settings->saveAuthToken("local-token", local);
    settings->clearAuthToken(local);
    EXPECT_TRUE(file(settings.get())->contains(BridgeSettings::legacyTokenKey));

    EXPECT_EQ(settings->authToken(QUrl("https://Cloud.Example.com/")), "legacy");
    auto written = file(settings.get());
    EXPECT_FALSE(written->contains(BridgeSettings::legacyTokenKey));
    EXPECT_EQ(written->value(BridgeSettings::tokenKey(production)).toString(), "legacy");

    settings.reset(); // clearing production also forgets a legacy token not yet moved
    handEdit(BridgeSettings::legacyTokenKey, "legacy-2");
    settings = open();
    settings->clearAuthToken(QUrl("https://CLOUD.example.com/"));
    EXPECT_FALSE(file(settings.get())->contains(BridgeSettings::legacyTokenKey));
    EXPECT_EQ(settings->authToken(production), std::nullopt);
}

TEST_F(BridgeSettingsTest, TheFileIsOwnerOnlyNewOrOld) {
    const mode_t previousMask = ::umask(022);
    auto settings = open();
    EXPECT_EQ(fileMode(path()), 0600u);
    settings->saveAuthToken("secret", production);
    settings->flush();
    EXPECT_EQ(fileMode(path()), 0600u);
    settings.reset();
    ASSERT_EQ(::chmod(QFile::encodeName(path()).constData(), 0644), 0);
    EXPECT_EQ(open()->authToken(production), "secret");
    EXPECT_EQ(fileMode(path()), 0600u) << "an existing file is narrowed";
    ::umask(previousMask);
}

} // namespace
} // namespace kelvo
