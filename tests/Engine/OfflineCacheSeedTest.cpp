#include "Engine/OfflineCacheSeed.h"

#include "Cloud/OfflineShowCache.h"
#include "Engine/EngineHost.h"

#include "support/RecordingHarness.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

TEST(OfflineCacheSeed, AnUnusableBootstrapOrAHarnessThatRealisesNoShowWritesNothing) {
    const test::TemporaryDirectory dir;
    OfflineShowCache cache{QString::fromStdString(dir / "cache")};
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
        EngineHost engine;
        try {
            seedOfflineCache({QByteArray::fromStdString(test::testHarness(harness)), "{}",
                              QByteArray::fromStdString(bootstrap), "{}"},
                             engine, cache);
            ADD_FAILURE() << "seeded";
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), testing::StartsWith(reason));
        }
        EXPECT_FALSE(cache.loadHarnessJS() || cache.loadShowSnapshot() || cache.loadWorkspaceUI());
    }
}

} // namespace
} // namespace kelvo
