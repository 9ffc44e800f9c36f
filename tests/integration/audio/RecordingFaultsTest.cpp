#include "Audio/Recording/AudioRecordingWriter.h"

#include "support/RequiredTool.h"
#include "support/SoundFile.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvo {
namespace {

float probeSample(std::uint64_t frame, int channel) {
    return static_cast<float>(0.5 * std::sin(0.01 * double(frame) * (channel + 1)));
}

struct ProbeRun {
    int pid = -1;
    std::string part;
    std::string failure;
    std::uint64_t lastFrames = 0;
};

// Reads the probe's lines until `stop` says so or the output ends.
ProbeRun follow(FILE* out, const std::function<bool(const ProbeRun&)>& stop) {
    ProbeRun run;
    char line[4096];
    while (std::fgets(line, sizeof line, out)) {
        std::string text(line);
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        if (text.starts_with("pid "))
            run.pid = std::stoi(text.substr(4));
        else if (text.starts_with("part "))
            run.part = text.substr(5);
        else if (text.starts_with("frames "))
            run.lastFrames = std::stoull(text.substr(7));
        else if (text.starts_with("failed: "))
            run.failure = text.substr(8);
        if (stop(run))
            break;
    }
    return run;
}

FILE* startProbe(const std::string& arguments) {
    return ::popen((std::string("'") + KELVO_RECORDING_PROBE + "' " + arguments).c_str(), "r");
}

// Every frame the file holds is the probe's signal, in order from the first, and sox (whose
// reader is stricter about headers than libsndfile) counts as many.
void expectProbeSignal(const std::filesystem::path& path) {
    const test::SoundFile wav = test::readSoundFile(path);
    ASSERT_EQ(wav.format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    ASSERT_EQ(wav.channels, 2);
    for (sf_count_t f = 0; f < wav.frames; f += 1009)
        for (int c = 0; c < 2; ++c)
            ASSERT_NEAR(wav.samples[f * 2 + c], probeSample(f, c), 2.0 / 8388607) << f;
    FILE* sox = ::popen(("soxi -s '" + path.string() + "' 2>/dev/null").c_str(), "r");
    long long samples = -1;
    EXPECT_EQ(std::fscanf(sox, "%lld", &samples), 1);
    ::pclose(sox);
    EXPECT_EQ(samples, wav.frames);
}

class RecordingFaults : public testing::Test {
protected:
    void SetUp() override {
        KELVO_REQUIRE_TOOL(::access("/usr/bin/soxi", X_OK) == 0,
                           "sox is not installed (scripts/setup installs it)");
    }
    test::TemporaryDirectory dir;
};

TEST_F(RecordingFaults, AKilledRecordingIsRecoveredToAllButTheLastSecondByTheNextStart) {
    FILE* out = startProbe("'" + dir.path().string() + "'");
    ASSERT_NE(out, nullptr);
    const ProbeRun run = follow(out, [](const ProbeRun& r) { return r.lastFrames >= 48000 * 2; });
    ASSERT_GT(run.pid, 0);
    ::kill(run.pid, SIGKILL);
    ::pclose(out);
    const std::filesystem::path part = run.part;
    ASSERT_TRUE(std::filesystem::exists(WAVRecordingFile::recoveryURLFor(part)));

    AudioRecordingWriter next;
    next.start(48000, 2, dir.path(), {});
    next.waitUntilIdle();

    EXPECT_FALSE(std::filesystem::exists(WAVRecordingFile::recoveryURLFor(part)));
    const sf_count_t frames = test::readSoundFile(part).frames;
    EXPECT_GE(frames, static_cast<sf_count_t>(run.lastFrames) - 48000);
    EXPECT_LE(frames, static_cast<sf_count_t>(run.lastFrames) + 480);
    expectProbeSignal(part);
}

TEST_F(RecordingFaults, AWriteErrorStopsTheRecordingWithThePlatformsTextAndKeepsEarlierAudio) {
    // The file size limit: a refused write (EFBIG), not a SIGXFSZ that kills the process.
    FILE* out = startProbe("'" + dir.path().string() + "' --fast --file-size-limit 200000");
    ASSERT_NE(out, nullptr);
    const ProbeRun run = follow(out, [](const ProbeRun& r) { return !r.failure.empty(); });
    EXPECT_EQ(run.failure, std::strerror(EFBIG));
    const int status = ::pclose(out);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;

    // Closed on failure: no side file, and the header matches the whole frames written.
    EXPECT_FALSE(std::filesystem::exists(WAVRecordingFile::recoveryURLFor(run.part)));
    const sf_count_t frames = test::readSoundFile(run.part).frames;
    EXPECT_GT(frames, 30000);
    EXPECT_LE(44 + frames * 6, 200000);
    expectProbeSignal(run.part);
}

} // namespace
} // namespace kelvo
