#include "Cloud/OfflineShowCache.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>

namespace kelvo {
namespace {

QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

void writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(bytes);
}

OfflineWorkspaceUIState sampleWorkspace() {
    OfflineWorkspaceUIState state;
    state.shows = {{"s1", "Club Night", true, false}, {"s2", "Gala", false, false}};
    state.selectedShowId = "s1";
    state.lightingModes = {{"m1", "party", "Party", "general", 1, true, std::nullopt, "core"}};
    state.selectedModeId = "party";
    state.themes = {{"Rave", {{1, 0, 0.5}}, {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}, true, false}};
    state.selectedThemeName = "Rave";
    state.selectedModeTo = "calm";
    state.selectedModeLerp = 0.25;
    return state;
}

class OfflineShowCacheFiles : public ::testing::Test {
protected:
    QString base() const { return temp.filePath("support/nested/KelvoBridge"); }
    QTemporaryDir temp;
    OfflineShowCache cache{base()};
};

TEST_F(OfflineShowCacheFiles, RunningOfflineNeedsBothTheScriptAndTheShow) {
    const QByteArray snapshot = "{\"summary\":{\"id\":\"s1\"}}";
    OfflineShowCache showOnly(temp.filePath("show-only"));
    showOnly.saveShowSnapshot(snapshot);
    EXPECT_FALSE(showOnly.hasOfflineRuntime());
    cache.saveHarnessJS("var BridgeEngine = {};", "{}");
    EXPECT_FALSE(cache.hasOfflineRuntime());
    cache.saveShowSnapshot(snapshot);
    OfflineShowCache reopened(base());
    EXPECT_TRUE(reopened.hasOfflineRuntime());
    EXPECT_EQ(reopened.loadShowSnapshot(), snapshot);
}

TEST_F(OfflineShowCacheFiles, WorkspaceWrittenLaterKeepsTheNewestAndReportsFailures) {
    auto state = sampleWorkspace();
    for (int i = 0; i <= 100; ++i) { // a blend fader moved by hand
        state.selectedModeLerp = i / 100.0;
        cache.saveWorkspaceUILater(state);
    }
    cache.flushPendingWrites();
    EXPECT_EQ(OfflineShowCache(base()).loadWorkspaceUI(), state);

    // A folder that cannot be made fails every save; written later, the failure is announced.
    writeFile(temp.filePath("plain-file"), "x");
    OfflineShowCache blocked(temp.filePath("plain-file/KelvoBridge"));
    EXPECT_THROW(blocked.savePatch(ShowPatch{}), OfflineCacheError);
    QString reason;
    QObject::connect(&blocked, &OfflineShowCache::workspaceSaveFailed,
                     [&](const QString& text) { reason = text; });
    blocked.saveWorkspaceUILater(state);
    blocked.flushPendingWrites();
    EXPECT_TRUE(reason.startsWith("Couldn’t create the cache folder ")) << reason.toStdString();
}

TEST_F(OfflineShowCacheFiles, WorkspaceFileNeedsOnlyTheRequiredKeys) {
    // Optional keys may be missing, required ones may not.
    const QString path = cache.supportDir() + "/workspace_ui.json";
    writeFile(path, R"({"shows":[],"lightingModes":[],"selectedModeId":"blackout","themes":[],
                        "selectedThemeName":"Rave"})");
    EXPECT_EQ(cache.loadWorkspaceUI(),
              (OfflineWorkspaceUIState{.selectedModeId = "blackout", .selectedThemeName = "Rave"}));
    for (const char* damaged :
         {R"({"shows":[],"lightingModes":[],"themes":[],"selectedThemeName":"Rave"})",
          R"({"shows":[],"lightingModes":[],"selectedModeId":"b","themes":[],
                 "selectedThemeName":"Rave","selectedModeLerp":"half"})",
          "{\"shows\":["}) {
        writeFile(path, damaged);
        EXPECT_EQ(cache.loadWorkspaceUI(), std::nullopt) << damaged;
    }
}

TEST(OfflineShowCachePatchNames, KeepLettersDigitsAndHyphensOfAnyScript) {
    for (const auto& [id, name] : std::vector<std::pair<const char*, const char*>>{
             {"Show 1", "Show_1.json"},
             {"é-2", "é-2.json"},
             {"../etc/passwd", "___etc_passwd.json"},
             {"e\xcc\x81", "e\xcc\x81.json"},
             {"舞台٣", "舞台٣.json"},
             {"a\xf0\x9f\x8e\x89.b", "a__b.json"}, // 🎉 is one scalar
             {"x_y\ttab\\", "x_y_tab_.json"},
             {"", ".json"}})
        EXPECT_EQ(OfflineShowCache::patchFileName(id), QString::fromUtf8(name)) << id;

    // Ids too long for a file name keep their start plus a digest of the whole id.
    const std::string longId(300, 'a');
    const QString shortened = OfflineShowCache::patchFileName(longId);
    EXPECT_EQ(shortened.toUtf8().size(), 255);
    EXPECT_TRUE(shortened.startsWith(QString(200, u'a')));
    EXPECT_NE(shortened, OfflineShowCache::patchFileName(longId + "b"));
    const QString wide = OfflineShowCache::patchFileName(
        std::string(150, 'x') + "舞台舞台舞台舞台舞台舞台舞台舞台舞台舞台舞台舞台舞台舞台舞台舞台舞"
                                "台舞台舞台舞台舞台舞台舞台舞台舞台舞台");
    // Cut between whole characters (three bytes here, four for the script letter), as late
    // as the limit allows.
    std::string letters(151, 'x');
    for (int i = 0; i < 30; ++i)
        letters += "𝒜";
    for (const QString& cut : {wide, OfflineShowCache::patchFileName(letters)}) {
        EXPECT_LE(cut.toUtf8().size(), 255) << cut.toStdString();
        EXPECT_GE(cut.toUtf8().size(), 252) << cut.toStdString();
        EXPECT_FALSE(cut.contains(QChar::ReplacementCharacter)) << cut.toStdString();
        EXPECT_TRUE(cut.endsWith(".json"));
    }
}

/// Caps the size of files this process may write, so that a write fails half-way as on a full
/// disk (root ignores directory permissions, so those cannot force a failure here).
struct FileSizeCap {
    explicit FileSizeCap(rlim_t bytes) : handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &saved);
        const rlimit capped{bytes, saved.rlim_max};
        setrlimit(RLIMIT_FSIZE, &capped);
    }
    ~FileSizeCap() { setrlimit(RLIMIT_FSIZE, &saved), std::signal(SIGXFSZ, handler); }
    void (*handler)(int);
    rlimit saved{};
};

TEST_F(OfflineShowCacheFiles, FailedWriteLeavesThePreviousFileWhole) {
    cache.saveWorkspaceUI(sampleWorkspace());
    cache.saveHarnessJS("old script", "old manifest");
    const QByteArray before = readAll(base() + "/workspace_ui.json");
    ASSERT_LT(before.size(), 4096);

    auto huge = sampleWorkspace();
    huge.shows[0].name = std::string(8192, 'x');
    {
        FileSizeCap cap(4096);
        EXPECT_THROW(cache.saveWorkspaceUI(huge), OfflineCacheError);
        EXPECT_THROW(cache.saveHarnessJS(QByteArray(8192, 'x'), "new manifest"), OfflineCacheError);
    }
    EXPECT_EQ(readAll(base() + "/workspace_ui.json"), before);
    EXPECT_EQ(cache.loadHarnessJS(), QByteArray("old script"));
    EXPECT_EQ(cache.loadManifest(), QByteArray("old manifest")); // not written after the failure
    // No temporary files are left behind.
    EXPECT_EQ(QDir(base()).entryList(QDir::Files),
              (QStringList{"engine.js", "manifest.json", "workspace_ui.json"}));
}

} // namespace
} // namespace kelvo
