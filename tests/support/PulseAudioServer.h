#pragma once

#include "support/ChildProcess.h"
#include "support/FileBytes.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <unistd.h>

namespace kelvo::test {

/// A private PulseAudio daemon on its own socket and runtime folder, for the lifetime of
/// the object. Sets PULSE_SERVER for this process so every client in it talks to the daemon.
class PulseAudioServer {
public:
    PulseAudioServer() {
        std::filesystem::create_directories(dir_ / "run" / "pulse");
        std::filesystem::permissions(dir_ / "run", std::filesystem::perms::owner_all);
        writeText(dir_ / "default.pa",
                  "load-module module-native-protocol-unix auth-anonymous=1 socket=" +
                      (dir_ / "native").string() +
                      "\nload-module module-null-sink sink_name=speakers rate=48000 "
                      "sink_properties=device.description=Speakers\nset-default-sink speakers\n");
        if (::access("/usr/bin/pulseaudio", X_OK) != 0)
            failure_ = "pulseaudio is not installed (scripts/setup installs it)";
        else if (restart())
            ::setenv("PULSE_SERVER", server_.c_str(), 1);
    }
    ~PulseAudioServer() { ::unsetenv("PULSE_SERVER"); }

    /// Whether the daemon runs and answers; `failure()` says why not.
    bool running() const { return daemon_ && daemon_->running(); }
    const std::string& failure() const { return failure_; }

    /// Kills the daemon with SIGKILL (its clients get no goodbye) and waits for it.
    void kill() { daemon_.reset(); }

    /// Starts the daemon on the same socket, with only the speakers sink; true when it answers.
    bool restart() {
        // The daemon gets its own home and runtime folders; everything else is inherited.
        daemon_.reset();
        daemon_.emplace(words("/usr/bin/env -u DBUS_SESSION_BUS_ADDRESS -u PULSE_SERVER HOME=" +
                              home() + " XDG_RUNTIME_DIR=" + (dir_ / "run").string() +
                              " PULSE_RUNTIME_PATH=" + (dir_ / "run" / "pulse").string() +
                              " XDG_CONFIG_HOME=" + (dir_ / "config").string() +
                              " /usr/bin/pulseaudio -n -F " + (dir_ / "default.pa").string() +
                              " --daemonize=no --exit-idle-time=-1 --system=false --disallow-exit"
                              " --use-pid-file=no --log-target=stderr --disable-shm=yes"),
                        dir_ / "pulseaudio.log", SIGKILL);
        if (daemon_->waitUntil([&] { return pactl({"info"}); }, std::chrono::seconds(10))) {
            failure_.clear();
            return true;
        }
        failure_ = "pulseaudio did not answer within 10 s: " + readText(dir_ / "pulseaudio.log");
        daemon_.reset();
        return false;
    }

    /// A source fed through a FIFO (float32le). `properties` is the source_properties text,
    /// e.g. "device.description='DJM-A9' device.bus=usb"; `channelMap` e.g. "aux0,aux1".
    struct PipeSource {
        std::filesystem::path fifo;
    };
    std::optional<PipeSource> loadPipeSource(const std::string& name, const std::string& properties,
                                             int rate, int channels,
                                             const std::string& channelMap = {}) const {
        const auto fifo = dir_ / (name + ".fifo");
        auto arguments =
            words("load-module module-pipe-source format=float32le source_name=" + name +
                  " file=" + fifo.string() + " rate=" + std::to_string(rate) +
                  " channels=" + std::to_string(channels));
        arguments.push_back("source_properties=\"" + properties + "\"");
        if (!channelMap.empty())
            arguments.push_back("channel_map=" + channelMap);
        return pactl(arguments) ? std::optional(PipeSource{fifo}) : std::nullopt;
    }

private:
    /// Space-separated words as arguments (the temporary folder's path has no spaces).
    static std::vector<std::string> words(const std::string& text) {
        std::istringstream in(text);
        return {std::istream_iterator<std::string>(in), {}};
    }
    std::string home() const { return dir_.path().string(); }

    /// Runs pactl against the daemon; whether it succeeded.
    bool pactl(const std::vector<std::string>& arguments) const {
        auto command = words("env HOME=" + home() + " PULSE_SERVER=" + server_ + " pactl");
        command.insert(command.end(), arguments.begin(), arguments.end());
        const pid_t pid = spawnWithOutput("/usr/bin/env", command, "/dev/null");
        return pid > 0 && waitForExit(pid) == 0;
    }

    TemporaryDirectory dir_;
    const std::string server_ = "unix:" + (dir_ / "native").string();
    std::string failure_;
    std::optional<ChildProcess> daemon_;
};

/// Writes interleaved float32 audio into a pipe source's FIFO at about `speed` times real
/// time, on the calling thread.
inline bool writeToFifo(const std::filesystem::path& fifo, const std::vector<float>& interleaved,
                        int channels, int rate, double speed = 1.0) {
    std::ofstream out(fifo, std::ios::binary);
    const std::size_t step = 256 * std::size_t(channels);
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t done = 0; done < interleaved.size() && out; done += step) {
        const std::size_t count = std::min(step, interleaved.size() - done);
        out.write(reinterpret_cast<const char*>(interleaved.data() + done),
                  std::streamsize(count * sizeof(float)));
        out.flush();
        std::this_thread::sleep_until(
            start +
            std::chrono::duration<double>(double((done + count) / channels) / rate / speed));
    }
    return bool(out);
}

} // namespace kelvo::test
