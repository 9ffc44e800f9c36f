#include "support/ChildProcess.h"
#include "support/FileBytes.h"
#include "support/LoopbackReceiver.h"
#include "support/SoundFile.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <numeric>
#include <regex>
#include <sstream>
#include <thread>

namespace kelvo {
namespace {

using Clock = std::chrono::steady_clock;

using test::readText;
using test::waitForExit;

pid_t spawn(const std::vector<std::string>& arguments, const std::string& output) {
    return test::spawnWithOutput(arguments.front(), arguments, output);
}

int run(const std::vector<std::string>& arguments, const std::string& output) {
    const pid_t pid = spawn(arguments, output);
    return pid > 0 ? waitForExit(pid) : -1;
}

/// A private cache, settings and Downloads folder seeded with the demo show, and a track.
class BridgeEndToEnd : public testing::Test {
protected:
    void SetUp() override {
        ::setenv("XDG_DATA_HOME", (dir / "data").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (dir / "config").c_str(), 1);
        std::filesystem::create_directories(dir / "config");
        std::filesystem::create_directories(downloads);
        std::ofstream(dir / "config" / "user-dirs.dirs")
            << "XDG_DOWNLOAD_DIR=\"" << downloads.string() << "\"\n";
        ASSERT_EQ(
            run({KELVO_SEED_CACHE, std::string(KELVO_SOURCE_DIR) + "/devcloud"}, dir / "seed.log"),
            0)
            << readText(dir / "seed.log");
        ASSERT_EQ(run({KELVO_TESTMUSIC, "-o", track, "--bpm", "120", "--seconds", "40"},
                      dir / "music.log"),
                  0)
            << readText(dir / "music.log");
    }

    test::TemporaryDirectory dir;
    std::filesystem::path downloads = dir / "downloads";
    std::string track = dir / "track.wav";
};

struct Received {
    double seconds;
    std::vector<std::uint8_t> bytes;
};

TEST_F(BridgeEndToEnd, ArtDmxFollowsTheBeat) {
    test::LoopbackReceiver node("127.0.0.1", 6454);
    const pid_t bridge =
        spawn({KELVO_BRIDGE, "--headless", "--audio-file", track, "--artnet", "on", "--artnet-host",
               "127.0.0.1", "--enttec", "off", "--route", "1=artnet:0", "--run-seconds", "14"},
              dir / "bridge.log");
    ASSERT_GT(bridge, 0);
    const auto start = Clock::now();
    std::vector<Received> packets;
    while (Clock::now() - start < std::chrono::seconds(16)) {
        const auto datagram = node.receive(500);
        if (!datagram)
            continue;
        packets.push_back({std::chrono::duration<double>(Clock::now() - start).count(), *datagram});
    }
    ASSERT_EQ(waitForExit(bridge), 0) << readText(dir / "bridge.log");
    const std::string log = readText(dir / "bridge.log");
    EXPECT_NE(log.find("120.0 BPM"), std::string::npos) << log;

    ASSERT_GT(packets.size(), 600u) << "about 60 packets a second for 14 s\n" << log;
    for (const Received& packet : packets) { // layout and sequence are the DMX tests' business
        ASSERT_GE(packet.bytes.size(), 18u);
        ASSERT_EQ(packet.bytes[14] | (packet.bytes[15] << 8), 0) << "universe 0";
    }

    // After the tracker has locked, the light jumps up once per beat (0.5 s at 120 BPM) and
    // decays in between.
    std::vector<double> times, levels;
    for (const Received& packet : packets) {
        if (packet.seconds < 6.0)
            continue;
        times.push_back(packet.seconds);
        levels.push_back(std::accumulate(packet.bytes.begin() + 18, packet.bytes.end(), 0.0));
    }
    ASSERT_GT(levels.size(), 300u);
    const auto [low, high] = std::minmax_element(levels.begin(), levels.end());
    ASSERT_GT(*high - *low, 1000.0) << "the lights move";
    const double jump = 0.15 * (*high - *low);
    std::vector<double> peaks;
    for (std::size_t i = 1; i < levels.size(); ++i)
        if (levels[i] - levels[i - 1] > jump && (peaks.empty() || times[i] - peaks.back() > 0.3))
            peaks.push_back(times[i]);
    ASSERT_GE(peaks.size(), 10u);
    std::vector<double> intervals;
    for (std::size_t i = 1; i < peaks.size(); ++i)
        intervals.push_back(peaks[i] - peaks[i - 1]);
    std::nth_element(intervals.begin(), intervals.begin() + intervals.size() / 2, intervals.end());
    EXPECT_NEAR(intervals[intervals.size() / 2], 0.5, 0.05) << "median time between light peaks";
}

TEST_F(BridgeEndToEnd, SpinningScriptHoldsTheLastLookAndSaysSo) {
    // The development engine, whose steps spin forever after the first two seconds.
    std::ofstream(dir / "data" / "KelvoBridge" / "engine.js")
        << readText(std::string(KELVO_SOURCE_DIR) + "/devcloud/harness/engine.js")
        << readText(std::string(KELVO_SOURCE_DIR) + "/bench/harnesses/step_spins.js");
    test::LoopbackReceiver node("127.0.0.1", 6454);
    const pid_t bridge =
        spawn({KELVO_BRIDGE, "--headless", "--audio-file", track, "--artnet", "on", "--artnet-host",
               "127.0.0.1", "--enttec", "off", "--route", "1=artnet:0", "--run-seconds", "7"},
              dir / "bridge.log");
    ASSERT_GT(bridge, 0);
    const auto start = Clock::now();
    std::vector<Received> late;
    while (Clock::now() - start < std::chrono::seconds(8)) {
        const auto datagram = node.receive(500);
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        if (datagram && seconds > 4 && seconds < 7)
            late.push_back({seconds, *datagram});
    }
    ASSERT_EQ(waitForExit(bridge), 0) << readText(dir / "bridge.log");
    EXPECT_NE(readText(dir / "bridge.log")
                  .find("Lighting engine script stopped responding — holding the last look"),
              std::string::npos)
        << readText(dir / "bridge.log");
    EXPECT_GT(late.size(), 150u) << "about 60 packets a second go on";
    for (const Received& packet : late)
        ASSERT_TRUE(std::equal(packet.bytes.begin() + 18, packet.bytes.end(),
                               late.front().bytes.begin() + 18, late.front().bytes.end()))
            << "the last look holds, at " << packet.seconds << " s";
}

TEST_F(BridgeEndToEnd, ClosedStdoutDoesNotEndTheBridge) {
    // Status lines piped into a program that has exited; the pipeline fails with the bridge.
    EXPECT_EQ(run({"/bin/bash", "-c", "set -o pipefail; \"$@\" | true", "bash", KELVO_BRIDGE,
                   "--headless", "--audio-file", track, "--artnet", "off", "--enttec", "off",
                   "--run-seconds", "2.5"},
                  dir / "bridge.log"),
              0)
        << readText(dir / "bridge.log");
}

TEST_F(BridgeEndToEnd, AStdoutNobodyReadsNeitherStopsArtDmxNorHoldsUpTheQuit) {
    // A pipe already full, whose reader never reads: the first status line would wait for good.
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
    const std::string block(4096, 'x');
    while (::write(ends[1], block.data(), block.size()) > 0) {
    }
    ::fcntl(ends[1], F_SETFL, 0);
    std::vector<std::string> arguments{KELVO_BRIDGE,    "--headless", "--audio-file",  track,
                                       "--artnet",      "on",         "--artnet-host", "127.0.0.1",
                                       "--enttec",      "off",        "--route",       "1=artnet:0",
                                       "--run-seconds", "4"};
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, (dir / "bridge.err").c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    test::LoopbackReceiver node("127.0.0.1", 6454);
    pid_t bridge = -1;
    ASSERT_EQ(::posix_spawn(&bridge, KELVO_BRIDGE, &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);

    const auto start = Clock::now();
    int lateArtDmx = 0;
    while (Clock::now() - start < std::chrono::seconds(5)) {
        const auto datagram = node.receive(500);
        if (datagram && Clock::now() - start > std::chrono::seconds(2))
            ++lateArtDmx;
    }
    EXPECT_GT(lateArtDmx, 60) << "ArtDmx goes on after the output stalled";
    // The quit waits at most about a second per relayed output; a watchdog, not a timing goal.
    int status = 0;
    pid_t ended = 0;
    while (ended == 0 && Clock::now() - start < std::chrono::seconds(20)) {
        ended = ::waitpid(bridge, &status, WNOHANG);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (ended == 0)
        ::kill(bridge, SIGKILL), ::waitpid(bridge, &status, 0);
    EXPECT_EQ(ended, bridge) << "the bridge did not quit while its output was stalled";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << readText(dir / "bridge.err");
    ::close(ends[0]);
}

/// One thread's system calls as strace wrote them (`strace -ff`), one call a line.
std::vector<std::string> traceOfThreadThat(const std::filesystem::path& folder,
                                           const std::string& calls) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (!entry.path().filename().string().starts_with("trace."))
            continue;
        const std::string text = readText(entry.path());
        if (text.find(calls) == std::string::npos)
            continue;
        std::vector<std::string> lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        return lines;
    }
    return {};
}

TEST_F(BridgeEndToEnd, TheFolderIsSyncedAfterAPartIsCreatedAndAfterItsSideFileIsPlacedOrRemoved) {
    // Observed, not timed: the recording thread's calls under strace.
    const auto traces = dir / "traces";
    std::filesystem::create_directories(traces);
    ASSERT_EQ(run({"/usr/bin/strace", "-ff", "-qq", "-e",
                   "trace=openat,fsync,fdatasync,rename,renameat2,unlink,unlinkat", "-o",
                   (traces / "trace").string(), KELVO_BRIDGE, "--headless", "--audio-file", track,
                   "--artnet", "off", "--enttec", "off", "--record", "--run-seconds", "2"},
                  dir / "bridge.log"),
              0)
        << readText(dir / "bridge.log");
    const std::string folder = "\"" + downloads.string() + "\"";
    const std::vector<std::string> calls = traceOfThreadThat(traces, ".wav\", O_WRONLY|O_CREAT");
    ASSERT_FALSE(calls.empty()) << "no thread created a part";

    // Which calls need the folder synced after them (strace pads the result with spaces), and where
    // the folder was synced.
    std::vector<std::pair<std::size_t, std::string>> changes;
    std::vector<std::size_t> folderSyncs;
    std::map<std::string, bool> fdIsFolder;
    const std::regex opened(R"(^openat\(AT_FDCWD, ("[^"]*"), ([^,)]*).*\)\s+= (\d+)$)");
    const std::regex synced(R"(^f(data)?sync\((\d+)\)\s+= 0$)");
    for (std::size_t i = 0; i < calls.size(); ++i) {
        std::smatch match;
        const std::string& call = calls[i];
        if (std::regex_match(call, match, opened)) {
            fdIsFolder[match[3]] =
                match[1] == folder && match[2].str().find("O_DIRECTORY") != std::string::npos;
            if (match[1].str().ends_with(".wav\"") &&
                match[2].str().find("O_CREAT") != std::string::npos)
                changes.emplace_back(i, "the part's creation");
        } else if (std::regex_match(call, match, synced) && fdIsFolder[match[2]]) {
            folderSyncs.push_back(i);
        } else if (call.starts_with("rename") &&
                   call.find(".recovery.json\"") != std::string::npos && call.ends_with(" = 0")) {
            changes.emplace_back(i, "the side file's placing");
        } else if (call.starts_with("unlink") && call.find(".recovery.json") != std::string::npos &&
                   call.ends_with(" = 0")) {
            changes.emplace_back(i, "the side file's removal");
        }
    }
    ASSERT_EQ(changes.size(), 3u) << readText(traces.parent_path() / "bridge.log");
    for (const auto& [at, what] : changes)
        EXPECT_TRUE(std::any_of(folderSyncs.begin(), folderSyncs.end(),
                                [at = at](std::size_t sync) { return sync > at; }))
            << "the folder is not synced after " << what;
}

TEST_F(BridgeEndToEnd, SigtermDuringARecordingLeavesAFinishedWav) {
    const pid_t bridge = spawn({KELVO_BRIDGE, "--headless", "--audio-file", track, "--artnet",
                                "off", "--enttec", "off", "--record"},
                               dir / "bridge.log");
    ASSERT_GT(bridge, 0);
    std::this_thread::sleep_for(std::chrono::seconds(3));
    ASSERT_EQ(::kill(bridge, SIGTERM), 0);
    ASSERT_EQ(waitForExit(bridge), 0) << readText(dir / "bridge.log");

    std::vector<std::filesystem::path> recordings;
    bool sideFileLeft = false;
    for (const auto& entry : std::filesystem::directory_iterator(downloads)) {
        if (entry.path().extension() == ".wav")
            recordings.push_back(entry.path());
        sideFileLeft = sideFileLeft || entry.path().string().ends_with(".recovery.json");
    }
    ASSERT_EQ(recordings.size(), 1u) << readText(dir / "bridge.log");
    EXPECT_FALSE(sideFileLeft) << "a finished part has no recovery side file";
    const test::SoundFile wav = test::readSoundFile(recordings.front());
    ASSERT_GE(wav.frames, 0) << sf_strerror(nullptr);
    EXPECT_EQ(wav.format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    EXPECT_GE(double(wav.frames) / wav.sampleRate, 1.0) << "most of three seconds, start-up aside";
    EXPECT_NE(readText(dir / "bridge.log").find("Recording saved in Downloads."),
              std::string::npos);
}

} // namespace
} // namespace kelvo
