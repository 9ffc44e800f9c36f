#include "Cloud/BridgeAPIError.h"
#include "Cloud/FakeURLSession.h"
#include "Engine/HarnessLoader.h"
#include "support/AppModelRig.h"
#include "support/FileBytes.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using test::finish;

QByteArray devcloudFile(const std::string& path) {
    return QByteArray::fromStdString(test::readText(KELVO_SOURCE_DIR "/devcloud/" + path));
}

/// The model's download against a fake transport serving the development cloud's files.
class ShowDownloadTest : public testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override {
        test::qtApplication();
        serverURL = QUrl("http://127.0.0.1:4041");
        http = cloud;
        cloud->setResponder([this](const HTTPRequest& request) -> std::optional<HTTPResponse> {
            const std::string path = request.url.path().toStdString();
            if (const auto found = answers.find(path); found != answers.end())
                return found->second;
            if (path.starts_with("/api/shows/"))
                return HTTPResponse{200, devcloudFile("data/shows/" + path.substr(11) + ".json")};
            return HTTPResponse{404, "not found"};
        });
        model = makeModel();
        model->bootstrap();
    }

    std::map<std::string, HTTPResponse> answers = {
        {"/bridge-harness/v1/manifest.json", {200, devcloudFile("harness/manifest.json")}},
        {"/bridge-harness/v1/engine.js", {200, devcloudFile("harness/engine.js")}},
        {"/api/runtime/bootstrap", {200, devcloudFile("data/bootstrap.json")}},
        {"/api/config", {200, devcloudFile("data/config.json")}},
    };
    std::shared_ptr<test::FakeURLSession> cloud = std::make_shared<test::FakeURLSession>();
    std::unique_ptr<AppModel> model;
};

TEST_F(ShowDownloadTest, FullDownloadCachesAndLightsTheActiveShowAndFetchesOnlyStalePatches) {
    finish(model->fetchShowAndHarness("tok"));
    const auto cache = makeCache();
    EXPECT_EQ(cache->loadHarnessJS(), answers["/bridge-harness/v1/engine.js"].body);
    EXPECT_EQ(cache->loadManifest(), answers["/bridge-harness/v1/manifest.json"].body);
    EXPECT_TRUE(model->engine().hasRealizedShow());
    EXPECT_TRUE(test::pumpUntil([&] { return !model->engine().hasRetiredEngine(); }))
        << "the engine the download replaced is torn down in a slot of its own";
    EXPECT_EQ(model->shows().size(), 2u) << "the archived show is left out";
    EXPECT_EQ(model->selectedModeId(), "pulse");
    EXPECT_EQ(model->showPatch()->showId, "show-demo");
    // Written on the cache's worker after the bootstrap, and again once the themes arrived; the
    // workspace counts once the snapshot is on disk.
    EXPECT_TRUE(test::pumpUntil([&] {
        const auto workspace = cache->loadWorkspaceUI();
        return model->hasOfflineWorkspace() && workspace && workspace->themes == model->themes() &&
               workspace->themes.size() == 6 && workspace->selectedShowId == "show-demo";
    }));
    // Only the show without a cached patch is fetched; its patch lands in the cache.
    ASSERT_TRUE(test::pumpUntil([&] { return cache->loadPatch("show-warehouse").has_value(); }));
    EXPECT_EQ(cloud->countPath("/api/shows/show-demo"), 0u);
    EXPECT_EQ(cloud->countPath("/api/shows/show-warehouse"), 1u);

    // A patch of an older revision is fetched again.
    ShowPatch old = *cache->loadPatch("show-warehouse");
    old.revision = 0;
    cache->savePatch(old);
    cloud->requests.clear();
    finish(model->fetchShowAndHarness("tok"));
    ASSERT_TRUE(test::pumpUntil([&] { return cache->loadPatch("show-warehouse")->revision == 1; }));
    EXPECT_EQ(cloud->countPath("/api/shows/show-warehouse"), 1u);
    EXPECT_EQ(cloud->countPath("/api/shows/show-demo"), 0u) << "its revision is current";
}

TEST_F(ShowDownloadTest, OnlyTheBootstrapIsVital) {
    answers["/bridge-harness/v1/manifest.json"] = {200, R"({"harnessMajor": 2, "file": "x.js"})"};
    answers["/api/config"] = {503, ""};
    finish(model->fetchShowAndHarness("tok"));
    EXPECT_FALSE(makeCache()->loadManifest()) << "an engine for another major is not taken";
    EXPECT_TRUE(model->themes().empty());
    // The selections are written on the cache's worker.
    EXPECT_TRUE(test::pumpUntil([&] { return makeCache()->loadWorkspaceUI().has_value(); }));

    answers["/api/runtime/bootstrap"] = {401, ""};
    EXPECT_THROW(finish(model->fetchShowAndHarness("tok")), BridgeAPIError);
}

TEST(HarnessLoader, ManifestRules) {
    const HarnessLoader loader;
    EXPECT_EQ(loader.scriptFileName(R"({"harnessMajor": 1, "file": "engine.js", "x": 0})"),
              "engine.js");
    for (const char* manifest :
         {R"({"harnessMajor": 2, "file": "engine.js"})",
          R"({"harnessMajor": "1", "file": "engine.js"})",
          R"({"harnessMajor": 1.5, "file": "engine.js"})", R"({"harnessMajor": 1})",
          R"({"harnessMajor": 1, "file": 3})", R"([1])"}) {
        EXPECT_THROW(loader.scriptFileName(manifest), HarnessLoaderError) << manifest;
    }
    EXPECT_THROW(loader.scriptFileName("not json"), nlohmann::json::parse_error);
    EXPECT_STREQ(HarnessLoaderError().what(), "Invalid harness manifest");
}

TEST_F(ShowDownloadTest, TheScriptIsCachedWhateverItsStatus) {
    answers["/bridge-harness/v1/manifest.json"] = {200, R"({"harnessMajor": 1, "file": "e2.js"})"};
    answers["/bridge-harness/v1/e2.js"] = {500, "<html>error</html>"};
    const auto cache = makeCache();
    test::finish(HarnessLoader{}.fetchAndCache(serverURL, cloud, *cache, {}));
    EXPECT_EQ(cache->loadHarnessJS(), "<html>error</html>");
}

} // namespace
} // namespace kelvo
