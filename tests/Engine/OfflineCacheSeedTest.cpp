#include "Engine/OfflineCacheSeed.h"

#include "Cloud/OfflineShowCache.h"
#include "Engine/EngineHost.h"

#include "support/RecordingHarness.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using nlohmann::json;
using testing::HasSubstr;

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

TEST_F(OfflineCacheSeedTest, AnUnusableBootstrapWritesNothing) {
    const std::pair<std::string, std::string> cases[] = {
        {R"({"shows": [], "control_state": {"mode": "pulse"}})",
         "The bootstrap has no active show."},
        {R"({"active_show": ["Club"]})", "The bootstrap has no active show."},
        {R"([{"active_show": {}}])", "The bootstrap cannot be read: "},
        {R"({"active_show": {)", "The bootstrap cannot be read: "},
    };
    for (const auto& [bootstrap, reason] : cases) {
        EXPECT_THAT(seedFailure(source("recording.js", bootstrap)), HasSubstr(reason)) << bootstrap;
        EXPECT_TRUE(cacheIsEmpty()) << bootstrap;
    }
}

TEST_F(OfflineCacheSeedTest, AHarnessThatRealisesNoShowWritesNothing) {
    const std::string bootstrap = R"({"active_show": {"name": "Club", "result": {}}})";
    for (const char* name : {"no_engine.js", "classical_fallback.js", "throws_on_load.js"}) {
        EXPECT_EQ(seedFailure(source(name, bootstrap)),
                  "The harness did not realise the active show.")
            << name;
        EXPECT_TRUE(cacheIsEmpty()) << name;
    }
}

TEST_F(OfflineCacheSeedTest, ASeededCacheStartsTheShowWithTheBootstrapSelections) {
    const std::string bootstrap =
        json{{"active_show", {{"name", "Club"}, {"result", {{"dmx", json::object()}}}}},
             {"shows", {{{"id", "s1"}, {"name", "Club"}, {"active", true}}}},
             {"control_state", {{"mode", " pulse "}, {"mode_lerp", 7}}}}
            .dump();
    ASSERT_EQ(seedFailure(source("recording.js", bootstrap)), "");
    EXPECT_EQ(cache.loadManifest(), QByteArray(R"({"version": 1})"));
    const std::optional<OfflineWorkspaceUIState> workspace = cache.loadWorkspaceUI();
    ASSERT_TRUE(workspace);
    EXPECT_EQ(workspace->selectedModeId, "pulse");
    EXPECT_EQ(workspace->selectedModeLerp, 1.0);
    EXPECT_EQ(workspace->shows.at(0).id, "s1");

    EngineHost restarted;
    restarted.loadHarness(cache.loadHarnessJS()->toStdString());
    restarted.loadCachedShow(cache.loadShowSnapshot()->toStdString());
    EXPECT_TRUE(restarted.hasRealizedShow()) << "the bridge starts from what was written";
}

} // namespace
} // namespace kelvo
