#include "Audio/Recording/WAVRecordingFile.h"

#include "support/RequiredTool.h"
#include "support/SoundFile.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <optional>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace kelvo {
namespace {

float probeSample(std::uint64_t frame, int channel) {
    return static_cast<float>(0.5 * std::sin(0.01 * double(frame) * (channel + 1)));
}

std::optional<std::string> nextLine(FILE* in) {
    char buffer[4096];
    if (!std::fgets(buffer, sizeof buffer, in))
        return std::nullopt;
    std::string text(buffer);
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

/// The probe as a child process whose standard output is read line by line.
class Probe {
public:
    explicit Probe(std::vector<std::string> args) {
        int pipeFds[2];
        if (::pipe(pipeFds) != 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
        posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
        std::vector<char*> argv;
        for (auto& a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        if (::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0)
            pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        ::close(pipeFds[1]);
        out_ = ::fdopen(pipeFds[0], "r");
    }
    ~Probe() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        if (out_)
            std::fclose(out_);
    }
    bool started() const { return pid_ > 0 && out_; }
    std::optional<std::string> line() { return nextLine(out_); }
    int killAndWait(int signal) {
        ::kill(pid_, signal);
        return wait();
    }
    int wait() {
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

private:
    pid_t pid_ = -1;
    FILE* out_ = nullptr;
};

struct ProbeRun {
    std::string part;
    std::string failure;
    std::uint64_t lastFrames = 0;
};

// Reads the probe's lines until `stop` says so or the output ends.
ProbeRun follow(const std::function<std::optional<std::string>()>& line,
                const std::function<bool(const ProbeRun&)>& stop) {
    ProbeRun run;
    while (auto text = line()) {
        if (text->rfind("part ", 0) == 0)
            run.part = text->substr(5);
        else if (text->rfind("frames ", 0) == 0)
            run.lastFrames = std::stoull(text->substr(7));
        else if (text->rfind("failed: ", 0) == 0)
            run.failure = text->substr(8);
        if (stop(run))
            break;
    }
    return run;
}

// Every frame the file holds is the probe's signal, in order from the first.
void expectProbeSignal(const test::SoundFile& wav) {
    ASSERT_EQ(wav.channels, 2);
    for (sf_count_t f = 0; f < wav.frames; f += 1009)
        for (int c = 0; c < 2; ++c)
            ASSERT_NEAR(wav.samples[f * 2 + c], probeSample(f, c), 2.0 / 8388607) << f;
}

// sox must accept the file too (its reader is stricter about headers than libsndfile);
// it counts samples per channel.
std::optional<long long> soxSampleCount(const std::filesystem::path& path) {
    FILE* pipe = ::popen(("soxi -s '" + path.string() + "' 2>/dev/null").c_str(), "r");
    if (!pipe)
        return std::nullopt;
    long long samples = -1;
    const int matched = std::fscanf(pipe, "%lld", &samples);
    if (::pclose(pipe) != 0 || matched != 1)
        return std::nullopt;
    return samples;
}

bool haveSox() {
    return ::access("/usr/bin/soxi", X_OK) == 0;
}

TEST(RecordingFaults, AKilledRecordingIsRecoveredToAllButTheLastSecond) {
    KELVO_REQUIRE_TOOL(haveSox(), "sox is not installed (scripts/setup installs it)");
    test::TemporaryDirectory dir;
    Probe probe({KELVO_RECORDING_PROBE, dir.path().string()});
    ASSERT_TRUE(probe.started());
    const ProbeRun run = follow([&] { return probe.line(); },
                                [](const ProbeRun& r) { return r.lastFrames >= 48000 * 2; });
    ASSERT_FALSE(run.part.empty());
    probe.killAndWait(SIGKILL);
    const std::filesystem::path part = run.part;
    ASSERT_TRUE(std::filesystem::exists(WAVRecordingFile::recoveryURLFor(part)));

    WAVRecordingFile::recoverInterrupted(dir.path());

    EXPECT_FALSE(std::filesystem::exists(WAVRecordingFile::recoveryURLFor(part)));
    const test::SoundFile wav = test::readSoundFile(part);
    EXPECT_EQ(wav.format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    EXPECT_GE(wav.frames, static_cast<sf_count_t>(run.lastFrames) - 48000);
    EXPECT_LE(wav.frames, static_cast<sf_count_t>(run.lastFrames) + 480);
    expectProbeSignal(wav);
    EXPECT_EQ(soxSampleCount(part), wav.frames);
}

TEST(RecordingFaults, TheFileSizeLimitStopsTheRecordingWithThePlatformsText) {
    KELVO_REQUIRE_TOOL(haveSox(), "sox is not installed (scripts/setup installs it)");
    test::TemporaryDirectory dir;
    Probe probe(
        {KELVO_RECORDING_PROBE, dir.path().string(), "--fast", "--file-size-limit", "200000"});
    ASSERT_TRUE(probe.started());
    const ProbeRun run =
        follow([&] { return probe.line(); }, [](const ProbeRun& r) { return !r.failure.empty(); });
    EXPECT_EQ(run.failure, std::strerror(EFBIG));
    const int status = probe.wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;

    // Closed on failure: no side file, and the header matches the whole frames written.
    EXPECT_FALSE(std::filesystem::exists(WAVRecordingFile::recoveryURLFor(run.part)));
    const test::SoundFile wav = test::readSoundFile(run.part);
    EXPECT_GT(wav.frames, 30000);
    EXPECT_LE(44 + wav.frames * 6, 200000);
    expectProbeSignal(wav);
    EXPECT_EQ(soxSampleCount(run.part), wav.frames);
}

TEST(RecordingFaults, AFullDiskStopsTheRecordingAndKeepsEarlierAudio) {
    KELVO_REQUIRE_TOOL(haveSox(), "sox is not installed (scripts/setup installs it)");
    // A 256 KiB tmpfs in a private mount namespace; the parts are copied out before it goes.
    const bool canUnshare = std::system("unshare -m true >/dev/null 2>&1") == 0;
    KELVO_REQUIRE_TOOL(canUnshare,
                       "cannot create a mount namespace (needs root or user namespaces)");
    test::TemporaryDirectory dir;
    const auto disk = dir / "disk";
    const auto saved = dir / "saved";
    std::filesystem::create_directories(disk);
    std::filesystem::create_directories(saved);
    const std::string script = "mount -t tmpfs -o size=256k tmpfs '" + disk.string() + "' && '" +
                               KELVO_RECORDING_PROBE + "' '" + disk.string() + "' --fast > '" +
                               (dir / "out.txt").string() + "'; cp -a '" + disk.string() + "'/. '" +
                               saved.string() + "'/";
    if (std::system(("unshare -m --propagation private sh -c \"" + script + "\"").c_str()) != 0) {
        ADD_FAILURE() << "the probe on the small disk did not run";
    }

    FILE* out = std::fopen((dir / "out.txt").c_str(), "r");
    ASSERT_NE(out, nullptr);
    const ProbeRun run =
        follow([&] { return nextLine(out); }, [](const ProbeRun&) { return false; });
    std::fclose(out);
    EXPECT_EQ(run.failure, std::strerror(ENOSPC));
    ASSERT_FALSE(run.part.empty());
    const auto part = saved / std::filesystem::path(run.part).filename();
    EXPECT_FALSE(std::filesystem::exists(WAVRecordingFile::recoveryURLFor(part)));
    const test::SoundFile wav = test::readSoundFile(part);
    EXPECT_GT(wav.frames, 20000);
    expectProbeSignal(wav);
    EXPECT_EQ(soxSampleCount(part), wav.frames);
}

} // namespace
} // namespace kelvo
