#include "Cloud/OfflineShowCache.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace kelvo {
namespace {

using D = UniverseRoute::Destination;

const QUrl production("https://cloud.example.com");

class OfflineShowCacheSettings : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(temp.isValid()); }

    QString settingsPath() const { return temp.filePath("config/Kelvo/KelvoBridge.conf"); }

    std::unique_ptr<OfflineShowCache> makeCache() {
        return std::make_unique<OfflineShowCache>(
            std::make_unique<QSettings>(settingsPath(), QSettings::IniFormat), production,
            temp.filePath("cache"));
    }

    /// A second, independent reader of the same settings file.
    std::unique_ptr<QSettings> reopenSettings() const {
        return std::make_unique<QSettings>(settingsPath(), QSettings::IniFormat);
    }

    mode_t fileMode() const {
        struct stat info {};
        if (::stat(QFile::encodeName(settingsPath()).constData(), &info) != 0)
            return 0;
        return info.st_mode & 07777;
    }

    QTemporaryDir temp;
};

TEST_F(OfflineShowCacheSettings, RoutesRoundTripAndBadBytesReadAsAbsent) {
    auto cache = makeCache();
    EXPECT_EQ(cache->loadRoutes(), std::nullopt);
    const std::vector<UniverseRoute> routes = {
        {1, D::enttec()}, {2, D::artnet(5)}, {3, D::unmapped()}};
    cache->saveRoutes(routes);
    EXPECT_EQ(cache->loadRoutes(), routes);
    EXPECT_EQ(makeCache()->loadRoutes(), routes);

    cache->saveRoutes({});
    EXPECT_EQ(cache->loadRoutes(), std::vector<UniverseRoute>{});

    cache->defaults().setValue(OfflineShowCache::routesKey,
                               QByteArray("[{\"virtualUniverse\":1}]"));
    EXPECT_EQ(cache->loadRoutes(), std::nullopt);
    cache->defaults().setValue(OfflineShowCache::routesKey, QByteArray("not json"));
    EXPECT_EQ(cache->loadRoutes(), std::nullopt);
    // Route JSON stored as text (for example by hand) is read as well.
    cache->defaults().setValue(OfflineShowCache::routesKey,
                               QString(R"([{"virtualUniverse":4,"destination":{"enttec":{}}}])"));
    EXPECT_EQ(cache->loadRoutes(), (std::vector<UniverseRoute>{{4, D::enttec()}}));
}

TEST_F(OfflineShowCacheSettings, ArtNetConfigIsAbsentUntilTheSwitchIsWritten) {
    auto cache = makeCache();
    EXPECT_EQ(cache->loadArtNetConfig(), std::nullopt);
    cache->saveArtNetHost("10.0.0.9");
    EXPECT_EQ(cache->loadArtNetConfig(), std::nullopt); // the host alone does not count

    auto fresh = std::make_unique<OfflineShowCache>(
        std::make_unique<QSettings>(temp.filePath("other.conf"), QSettings::IniFormat), production);
    fresh->saveArtNetEnabled(true);
    EXPECT_EQ(fresh->loadArtNetConfig(), (ArtNetConfig{true, "127.0.0.1"}));

    cache->saveArtNetEnabled(false);
    EXPECT_EQ(cache->loadArtNetConfig(), (ArtNetConfig{false, "10.0.0.9"}));
    cache->saveArtNetConfig({true, "192.168.1.20"});
    EXPECT_EQ(makeCache()->loadArtNetConfig(), (ArtNetConfig{true, "192.168.1.20"}));
}

TEST_F(OfflineShowCacheSettings, SwitchesDistinguishNeverWrittenFromFalse) {
    auto cache = makeCache();
    EXPECT_EQ(cache->loadEnttecEnabled(), std::nullopt);
    EXPECT_EQ(cache->loadArtNetAutoFix(), std::nullopt);
    cache->saveEnttecEnabled(false);
    cache->saveArtNetAutoFix(false);
    EXPECT_EQ(cache->loadEnttecEnabled(), false);
    EXPECT_EQ(cache->loadArtNetAutoFix(), false);

    auto reopened = makeCache();
    EXPECT_EQ(reopened->loadEnttecEnabled(), false);
    EXPECT_EQ(reopened->loadArtNetAutoFix(), false);
    reopened->saveEnttecEnabled(true);
    reopened->saveArtNetAutoFix(true);
    EXPECT_EQ(makeCache()->loadEnttecEnabled(), true);
    EXPECT_EQ(makeCache()->loadArtNetAutoFix(), true);

    // Whatever is stored counts as set, read as a boolean the way a hand edit means it.
    for (const auto& [text, meaning] : std::vector<std::pair<const char*, bool>>{{"maybe", false},
                                                                                 {"no", false},
                                                                                 {"0", false},
                                                                                 {"", false},
                                                                                 {"-00", false},
                                                                                 {"Yes", true},
                                                                                 {"TRUE", true},
                                                                                 {" 1", true},
                                                                                 {"007", true},
                                                                                 {"+2", true}}) {
        reopened->defaults().setValue(OfflineShowCache::enttecEnabledKey, text);
        EXPECT_EQ(reopened->loadEnttecEnabled(), meaning) << text;
    }
    reopened->defaults().setValue(OfflineShowCache::artnetEnabledKey, 1);
    EXPECT_EQ(reopened->loadArtNetConfig()->enabled, true);
}

TEST_F(OfflineShowCacheSettings, TokenKeyIsLowerCaseWithoutTrailingSlashes) {
    EXPECT_EQ(OfflineShowCache::tokenKey(QUrl("http://127.0.0.1:4041/")),
              "kelvo.bridge.device_token.http://127.0.0.1:4041");
    EXPECT_EQ(OfflineShowCache::tokenKey(QUrl("HTTPS://Cloud.Example.COM/Sub///")),
              "kelvo.bridge.device_token.https://cloud.example.com/sub");
    EXPECT_EQ(OfflineShowCache::tokenKey(QUrl("http://127.0.0.1:4041")),
              OfflineShowCache::tokenKey(QUrl("http://127.0.0.1:4041//")));
}

TEST_F(OfflineShowCacheSettings, TokensAreKeptPerServer) {
    auto cache = makeCache();
    const QUrl local("http://127.0.0.1:4041/");
    const QUrl staging("https://staging.example.com");
    EXPECT_EQ(cache->authToken(local), std::nullopt);
    cache->saveAuthToken("local-token", local);
    cache->saveAuthToken("staging-token", staging);
    EXPECT_EQ(cache->authToken(QUrl("HTTP://127.0.0.1:4041")), "local-token");
    EXPECT_EQ(cache->authToken(QUrl("https://STAGING.example.com///")), "staging-token");
    EXPECT_EQ(makeCache()->authToken(local), "local-token");

    cache->clearAuthToken(local);
    EXPECT_EQ(cache->authToken(local), std::nullopt);
    EXPECT_EQ(cache->authToken(staging), "staging-token");
    EXPECT_EQ(makeCache()->authToken(staging), "staging-token");

    // A server whose address continues another's keeps its own token.
    const QUrl nested("https://staging.example.com/eu");
    cache->saveAuthToken("nested-token", nested);
    cache->clearAuthToken(staging);
    EXPECT_EQ(cache->authToken(staging), std::nullopt);
    EXPECT_EQ(makeCache()->authToken(nested), "nested-token");
    cache->saveAuthToken("staging-token", staging);

    cache->saveAuthToken("", staging);
    EXPECT_EQ(cache->authToken(staging), std::nullopt); // empty counts as none
    EXPECT_EQ(cache->nonEmptyToken(OfflineShowCache::tokenKey(staging)), std::nullopt);
}

TEST_F(OfflineShowCacheSettings, LegacyTokenMovesToTheProductionServerOnce) {
    auto cache = makeCache();
    cache->defaults().setValue(OfflineShowCache::legacyTokenKey, "legacy");

    // Other servers never see it.
    EXPECT_EQ(cache->authToken(QUrl("http://127.0.0.1:4041")), std::nullopt);
    EXPECT_EQ(cache->authToken(QUrl("https://cloud.example.com.evil.net")), std::nullopt);
    EXPECT_EQ(cache->defaults().value(OfflineShowCache::legacyTokenKey).toString(), "legacy");

    EXPECT_EQ(cache->authToken(QUrl("https://Cloud.Example.com/")), "legacy");
    auto settings = reopenSettings();
    EXPECT_FALSE(settings->contains(OfflineShowCache::legacyTokenKey));
    EXPECT_EQ(settings->value(OfflineShowCache::tokenKey(production)).toString(), "legacy");

    // Once moved, a legacy value written later is not consulted again.
    cache->defaults().setValue(OfflineShowCache::legacyTokenKey, "newer-legacy");
    EXPECT_EQ(cache->authToken(production), "legacy");
    EXPECT_EQ(cache->defaults().value(OfflineShowCache::legacyTokenKey).toString(), "newer-legacy");
}

TEST_F(OfflineShowCacheSettings, EmptyTokensDoNotBlockOrMigrate) {
    auto cache = makeCache();
    cache->defaults().setValue(OfflineShowCache::tokenKey(production), "");
    cache->defaults().setValue(OfflineShowCache::legacyTokenKey, "legacy");
    EXPECT_EQ(cache->authToken(production), "legacy"); // an empty per-server value is no token

    cache->clearAuthToken(production);
    cache->defaults().setValue(OfflineShowCache::legacyTokenKey, "");
    EXPECT_EQ(cache->authToken(production), std::nullopt);
    EXPECT_TRUE(cache->defaults().contains(OfflineShowCache::legacyTokenKey));
}

TEST_F(OfflineShowCacheSettings, ClearingProductionAlsoForgetsTheLegacyToken) {
    auto cache = makeCache();
    const QUrl local("http://127.0.0.1:4041");
    cache->saveAuthToken("local-token", local);
    cache->defaults().setValue(OfflineShowCache::legacyTokenKey, "legacy");

    cache->clearAuthToken(local);
    EXPECT_TRUE(cache->defaults().contains(OfflineShowCache::legacyTokenKey));

    cache->saveAuthToken("local-token", local);
    cache->clearAuthToken(QUrl("https://CLOUD.example.com/"));
    EXPECT_FALSE(reopenSettings()->contains(OfflineShowCache::legacyTokenKey));
    EXPECT_EQ(cache->authToken(production), std::nullopt);
    EXPECT_EQ(cache->authToken(local), "local-token");
}

TEST_F(OfflineShowCacheSettings, SettingsFileIsOwnerOnly) {
    const mode_t previousMask = ::umask(022);
    auto cache = makeCache();
    EXPECT_TRUE(QFileInfo::exists(settingsPath()));
    EXPECT_EQ(fileMode(), 0600u);
    cache->saveAuthToken("secret", production);
    cache->saveRoutes(defaultUniverseRoutes());
    EXPECT_EQ(fileMode(), 0600u);
    EXPECT_EQ(reopenSettings()->value(OfflineShowCache::tokenKey(production)).toString(), "secret");
    ::umask(previousMask);
}

TEST_F(OfflineShowCacheSettings, ExistingSettingsFileIsNarrowedToOwnerOnly) {
    {
        QSettings settings(settingsPath(), QSettings::IniFormat);
        settings.setValue(OfflineShowCache::enttecEnabledKey, true);
    }
    ASSERT_EQ(::chmod(QFile::encodeName(settingsPath()).constData(), 0644), 0);
    auto cache = makeCache();
    EXPECT_EQ(fileMode(), 0600u);
    EXPECT_EQ(cache->loadEnttecEnabled(), true); // contents untouched
}

TEST_F(OfflineShowCacheSettings, UserSettingsLiveUnderTheConfigHomeOwnerOnly) {
    // The only NativeFormat user in this program, so Qt has not cached a config path yet.
    qputenv("XDG_CONFIG_HOME", temp.filePath("xdg-config").toUtf8());
    OfflineShowCache cache(OfflineShowCache::openUserSettings(), production, temp.filePath("c"));
    const QString expected = temp.filePath("xdg-config") + "/Kelvo/KelvoBridge.conf";
    EXPECT_EQ(cache.defaults().fileName(), expected);
    cache.saveAuthToken("t", production);
    struct stat info {};
    ASSERT_EQ(::stat(QFile::encodeName(expected).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
}

} // namespace
} // namespace kelvo
