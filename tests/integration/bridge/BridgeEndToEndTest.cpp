#include "support/ChildProcess.h"
#include "support/FileBytes.h"
#include "support/LoopbackReceiver.h"
#include "support/SoundFile.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <numeric>
#include <sstream>
#include <thread>

namespace kelvo {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using test::readText;

struct Received {
    double seconds;
    std::vector<std::uint8_t> bytes;
};

/// The exit code, or -1 when the child had to be killed after `limit` (a watchdog, not a goal).
int exitWithin(pid_t pid, std::chrono::seconds limit) {
    const auto deadline = Clock::now() + limit;
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            ::kill(pid, SIGKILL), ::waitpid(pid, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(50ms);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// A private cache, settings and Downloads folder seeded with the demo show, a track, and an
/// Art-Net node on loopback (the test runs in a network namespace of its own).
class BridgeEndToEnd : public testing::Test {
protected:
    void SetUp() override {
        ::setenv("XDG_DATA_HOME", (dir / "data").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (dir / "config").c_str(), 1);
        std::filesystem::create_directories(dir / "config");
        std::filesystem::create_directories(downloads);
        std::ofstream(dir / "config" / "user-dirs.dirs")
            << "XDG_DOWNLOAD_DIR=\"" << downloads.string() << "\"\n";
        ASSERT_EQ(run({KELVO_SEED_CACHE, std::string(KELVO_SOURCE_DIR) + "/devcloud"}), 0) << log();
        ASSERT_EQ(run({KELVO_TESTMUSIC, "-o", track, "--bpm", "120", "--seconds", "40"}), 0)
            << log();
    }

    pid_t spawn(const std::vector<std::string>& arguments) {
        return test::spawnWithOutput(arguments.front(), arguments, (dir / "bridge.log").string());
    }
    int run(const std::vector<std::string>& arguments) {
        const pid_t pid = spawn(arguments);
        return pid > 0 ? exitWithin(pid, 60s) : -1;
    }
    /// What the node receives in the next `seconds`, timed from now.
    std::vector<Received> receive(double seconds) {
        const auto start = Clock::now();
        std::vector<Received> packets;
        for (double now = 0; now < seconds;
             now = std::chrono::duration<double>(Clock::now() - start).count())
            if (const auto datagram = node.receive(200))
                packets.push_back({now, *datagram});
        return packets;
    }
    std::string log() const { return readText(dir / "bridge.log"); }

    test::TemporaryDirectory dir;
    std::filesystem::path downloads = dir / "downloads";
    std::string track = dir / "track.wav";
    test::LoopbackReceiver node{"127.0.0.1", 6454};
};

TEST_F(BridgeEndToEnd, ArtDmxFollowsTheBeatAndSigtermLeavesAFinishedRecording) {
    const pid_t pid =
        spawn({KELVO_BRIDGE, "--headless", "--audio-file", track, "--enttec", "off", "--artnet",
               "on", "--route", "1=artnet:0", "--artnet-host", "127.0.0.1", "--record"});
    ASSERT_GT(pid, 0);
    const std::vector<Received> packets = receive(14);
    ASSERT_EQ(::kill(pid, SIGTERM), 0);
    ASSERT_EQ(exitWithin(pid, 20s), 0) << log();
    EXPECT_NE(log().find("120.0 BPM"), std::string::npos) << log();

    ASSERT_GT(packets.size(), 600u) << "about 60 packets a second for 14 s\n" << log();
    // The tracker's accuracy is the beat comparison's; here the track moves the lights.
    // Layout and sequence are the DMX tests' business.
    std::vector<double> levels;
    for (const Received& packet : packets) {
        ASSERT_GE(packet.bytes.size(), 18u);
        ASSERT_EQ(packet.bytes[14] | (packet.bytes[15] << 8), 0) << "universe 0";
        levels.push_back(std::accumulate(packet.bytes.begin() + 18, packet.bytes.end(), 0.0));
    }
    const auto [low, high] = std::minmax_element(levels.begin() + levels.size() / 2, levels.end());
    EXPECT_GT(*high - *low, 1000.0) << "the lights move";

    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(downloads))
        files.push_back(entry.path());
    ASSERT_EQ(files.size(), 1u) << "one part, and no recovery side file once it is finished";
    const test::SoundFile wav = test::readSoundFile(files.front());
    EXPECT_EQ(wav.format, SF_FORMAT_WAV | SF_FORMAT_PCM_24) << files.front();
    EXPECT_GE(double(wav.frames) / wav.sampleRate, 10.0) << "most of 14 s, start-up aside";
    EXPECT_NE(log().find("Recording saved in Downloads."), std::string::npos);
}

TEST_F(BridgeEndToEnd, AHangUpEndsTheRunAsSigtermDoes) {
    const pid_t pid = spawn({KELVO_BRIDGE, "--headless", "--audio-file", track, "--artnet", "off",
                             "--enttec", "off", "--record"});
    ASSERT_GT(pid, 0);
    const auto recording = [&] {
        std::error_code error;
        return !std::filesystem::is_empty(downloads, error) && !error;
    };
    for (int i = 0; i < 200 && !recording(); ++i)
        std::this_thread::sleep_for(50ms);
    ASSERT_TRUE(recording()) << log();
    ASSERT_EQ(::kill(pid, SIGHUP), 0);
    ASSERT_EQ(exitWithin(pid, 20s), 0) << log();
    EXPECT_NE(log().find("Recording saved in Downloads."), std::string::npos) << log();
}

TEST_F(BridgeEndToEnd, TheRecordingFolderIsSyncedAfterEachChangeAndAClosedStdoutEndsNothing) {
    // Observed, not timed: the recording thread's calls under strace (-y names each descriptor's
    // file). The status lines go into a pipe whose reader has exited; the pipeline fails with
    // the bridge.
    const auto traces = dir / "traces";
    std::filesystem::create_directories(traces);
    const std::string strace = "strace -ff -qq -y -o '" + (traces / "trace").string() +
                               "' -e trace=openat,fsync,fdatasync,rename,renameat2,unlink,unlinkat";
    ASSERT_EQ(run({"/bin/bash", "-c", "set -o pipefail; " + strace + " \"$@\" | true", "bash",
                   KELVO_BRIDGE, "--headless", "--audio-file", track, "--artnet", "off", "--enttec",
                   "off", "--record", "--run-seconds", "2.5"}),
              0)
        << log();
    std::string recordingThread;
    for (const auto& entry : std::filesystem::directory_iterator(traces))
        if (const std::string calls = readText(entry.path());
            calls.find(".wav\", O_WRONLY|O_CREAT") != std::string::npos)
            recordingThread = calls;

    const std::string folder = "<" + std::filesystem::canonical(downloads).string() + ">)";
    std::vector<std::pair<std::string, bool>> changes; // each needs the folder synced after it
    std::istringstream trace(recordingThread);
    for (std::string call; std::getline(trace, call);) {
        const auto has = [&](const std::string& text) {
            return call.find(text) != std::string::npos;
        };
        if (has("sync(") && has(folder) && call.ends_with("= 0")) {
            for (auto& change : changes)
                change.second = true;
        } else if (has("openat(") && has(".wav\", O_WRONLY|O_CREAT") && !has("= -1")) {
            changes.emplace_back("the part's creation", false);
        } else if (has("rename") && has(".recovery.json") && call.ends_with("= 0")) {
            changes.emplace_back("the side file's placing", false);
        } else if (has("unlink") && has(".recovery.json") && call.ends_with("= 0")) {
            changes.emplace_back("the side file's removal", false);
        }
    }
    ASSERT_EQ(changes.size(), 3u) << log() << recordingThread;
    for (const auto& [what, synced] : changes)
        EXPECT_TRUE(synced) << "the folder is not synced after " << what;
}

} // namespace
} // namespace kelvo
