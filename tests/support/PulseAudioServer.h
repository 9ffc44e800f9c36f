#pragma once

#include "support/ChildProcess.h"
#include "support/FileBytes.h"
#include "support/TemporaryDirectory.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <iterator>
#include <optional>
#include <sstream>
#include <thread>
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
        else if (launch())
            ::setenv("PULSE_SERVER", server_.c_str(), 1);
    }
    ~PulseAudioServer() {
        kill(); // everything it keeps is in its temporary folder
        ::unsetenv("PULSE_SERVER");
    }
    PulseAudioServer(const PulseAudioServer&) = delete;
    PulseAudioServer& operator=(const PulseAudioServer&) = delete;

    /// Whether the daemon runs and answers; `failure()` says why not.
    bool running() const { return pid_ > 0; }
    const std::string& failure() const { return failure_; }

    /// Kills the daemon with SIGKILL (its clients get no goodbye) and waits for it.
    void kill() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            waitForExit(pid_);
        }
        pid_ = -1;
    }
    /// Starts the daemon again on the same socket, with only the speakers sink; true when it
    /// answers.
    bool restart() {
        kill();
        return launch();
    }

    /// Runs pactl against the daemon; its standard output, or absent on failure.
    std::optional<std::string> pactl(const std::vector<std::string>& arguments) const {
        auto command =
            words("env HOME=" + dir_.path().string() + " PULSE_SERVER=" + server_ + " /bin/sh -c");
        command.insert(command.end(), {"exec pactl \"$@\" 2>/dev/null", "pactl"});
        command.insert(command.end(), arguments.begin(), arguments.end());
        const auto output = dir_ / "pactl.out";
        const pid_t pid = spawnWithOutput("/usr/bin/env", command, output);
        if (pid <= 0 || waitForExit(pid) != 0)
            return std::nullopt;
        return readText(output);
    }

    /// A source fed through a FIFO (float32le). `properties` is the source_properties text,
    /// e.g. "device.description='DJM-A9' device.bus=usb"; `channelMap` e.g. "aux0,aux1".
    struct PipeSource {
        int module = -1;
        std::filesystem::path fifo;
    };
    std::optional<PipeSource> loadPipeSource(const std::string& name, const std::string& properties,
                                             int rate, int channels,
                                             const std::string& channelMap = {}) {
        const auto fifo = dir_ / (name + ".fifo");
        auto arguments =
            words("load-module module-pipe-source format=float32le source_name=" + name +
                  " file=" + fifo.string() + " rate=" + std::to_string(rate) +
                  " channels=" + std::to_string(channels));
        arguments.push_back("source_properties=\"" + properties + "\"");
        if (!channelMap.empty())
            arguments.push_back("channel_map=" + channelMap);
        const auto output = pactl(arguments);
        if (!output)
            return std::nullopt;
        return PipeSource{std::stoi(*output), fifo};
    }
    bool unloadModule(int module) const {
        return pactl({"unload-module", std::to_string(module)}).has_value();
    }

private:
    /// Space-separated words as arguments (the temporary folder's path has no spaces).
    static std::vector<std::string> words(const std::string& text) {
        std::istringstream in(text);
        return {std::istream_iterator<std::string>(in), {}};
    }

    bool launch() {
        // The daemon gets its own home and runtime folders; everything else is inherited.
        const std::string logPath = (dir_ / "pulseaudio.log").string();
        pid_ = spawnWithOutput(
            "/usr/bin/env",
            words("env -u DBUS_SESSION_BUS_ADDRESS -u PULSE_SERVER HOME=" + dir_.path().string() +
                  " XDG_RUNTIME_DIR=" + (dir_ / "run").string() +
                  " PULSE_RUNTIME_PATH=" + (dir_ / "run" / "pulse").string() +
                  " XDG_CONFIG_HOME=" + (dir_ / "config").string() + " /usr/bin/pulseaudio -n -F " +
                  (dir_ / "default.pa").string() +
                  " --daemonize=no --exit-idle-time=-1 --system=false --disallow-exit"
                  " --use-pid-file=no --log-target=stderr --disable-shm=yes"),
            logPath);
        failure_ = "cannot start pulseaudio";
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (pid_ > 0 && std::chrono::steady_clock::now() < deadline) {
            if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                failure_ = "pulseaudio exited: " + readText(logPath);
            } else if (std::filesystem::exists(dir_ / "native") && pactl({"info"})) {
                failure_.clear();
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        if (pid_ > 0)
            failure_ = "pulseaudio did not answer within 10 s";
        kill();
        return false;
    }

    TemporaryDirectory dir_;
    const std::string server_ = "unix:" + (dir_ / "native").string();
    std::string failure_;
    pid_t pid_ = -1;
};

/// Writes interleaved float32 audio into a pipe source's FIFO at about `speed` times real
/// time, on the calling thread.
inline bool writeToFifo(const std::filesystem::path& fifo, const std::vector<float>& interleaved,
                        int channels, int rate, double speed = 1.0) {
    const int fd = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const auto start = std::chrono::steady_clock::now();
    const auto* bytes = reinterpret_cast<const char*>(interleaved.data());
    const std::size_t frameBytes = sizeof(float) * std::size_t(channels);
    const std::size_t total = interleaved.size() * sizeof(float);
    std::size_t done = 0;
    while (done < total) {
        const ssize_t written =
            ::write(fd, bytes + done, std::min<std::size_t>(256 * frameBytes, total - done));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            break;
        done += std::size_t(written);
        std::this_thread::sleep_until(
            start + std::chrono::duration<double>(double(done / frameBytes) / rate / speed));
    }
    ::close(fd);
    return done == total;
}

} // namespace kelvo::test
