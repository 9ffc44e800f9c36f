#include "Engine/OfflineCacheSeed.h"

#include "Cloud/OfflineShowCache.h"
#include "Engine/EngineHost.h"

#include "support/RecordingHarness.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

class OfflineCacheSeedTest : public testing::Test {
protected:
    OfflineCacheSource source(const std::string& harnessName, const std::string& bootstrap) {
        return {QByteArray::fromStdString(test::testHarness(harnessName)), R"({"version": 1})",
                QByteArray::fromStdString(bootstrap), R"({"themes": []})"};
    }

    /// Seeds and returns the failure text, or "" when it succeeded.
    std::string seedFailure(const OfflineCacheSource& from) {
        try {
            seedOfflineCache(from, engine, cache);
            return "";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    bool cacheIsEmpty() const {
        return !cache.loadHarnessJS() && !cache.loadShowSnapshot() && !cache.loadWorkspaceUI();
    }

    test::TemporaryDirectory dir;
    OfflineShowCache cache{QString::fromStdString(dir / "cache")};
    EngineHost engine;
};

TEST_F(OfflineCacheSeedTest, AnUnusableBootstrapOrAHarnessThatRealisesNoShowWritesNothing) {
    const std::string club = R"({"active_show": {"name": "Club", "result": {}}})";
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"recording.js", R"({"shows": [], "control_state": {"mode": "pulse"}})",
         "The bootstrap has no active show."},
        {"recording.js", R"({"active_show": ["Club"]})", "The bootstrap has no active show."},
        {"recording.js", R"([{"active_show": {}}])", "The bootstrap cannot be read: "},
        {"throws_on_load.js", club, "The harness did not realise the active show."},
    };
    for (const auto& [harness, bootstrap, reason] : cases) {
        SCOPED_TRACE(harness + " " + bootstrap);
        EXPECT_THAT(seedFailure(source(harness, bootstrap)), testing::StartsWith(reason));
        EXPECT_TRUE(cacheIsEmpty());
    }
}

TEST_F(OfflineCacheSeedTest, ASeededCacheStartsTheShowWithTheBootstrapSelections) {
    const std::string bootstrap = R"({"active_show": {"name": "Club", "result": {"dmx": {}}},
        "shows": [{"id": "s1", "name": "Club", "active": true}],
        "control_state": {"mode": " pulse ", "mode_lerp": 7}})";
    ASSERT_EQ(seedFailure(source("recording.js", bootstrap)), "");
    EXPECT_EQ(cache.loadManifest(), QByteArray(R"({"version": 1})"));
    const std::optional<OfflineWorkspaceUIState> workspace = cache.loadWorkspaceUI();
    ASSERT_TRUE(workspace);
    EXPECT_EQ(workspace->selectedModeId, "pulse");
    EXPECT_EQ(workspace->selectedModeLerp, 1.0);
    EXPECT_EQ(workspace->shows.at(0).id, "s1");
    // That the bridge lights what was written is the end-to-end test's (it starts from a seed).
}

} // namespace
} // namespace kelvo
