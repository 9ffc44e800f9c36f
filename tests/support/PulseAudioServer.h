#pragma once

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kelvo::test {

/// A private PulseAudio daemon on its own socket and runtime folder, for the lifetime of
/// the object. Sets PULSE_SERVER for this process so every client in it talks to the daemon.
class PulseAudioServer {
public:
    PulseAudioServer() {
        server_ = "unix:" + (dir_ / "native").string();
        std::filesystem::create_directories(dir_ / "run" / "pulse");
        std::filesystem::permissions(dir_ / "run", std::filesystem::perms::owner_all);
        std::ofstream(dir_ / "default.pa")
            << "load-module module-native-protocol-unix auth-anonymous=1 socket="
            << (dir_ / "native").string() << "\n"
            << "load-module module-null-sink sink_name=speakers rate=48000 "
               "sink_properties=device.description=Speakers\n"
            << "set-default-sink speakers\n";
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
    bool running() const { return running_; }
    const std::string& failure() const { return failure_; }
    const std::string& serverAddress() const { return server_; }

    /// Kills the daemon with SIGKILL (its clients get no goodbye) and waits for it.
    void kill() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
        running_ = false;
    }
    /// Starts the daemon again on the same socket, with only the speakers sink; true when it
    /// answers.
    bool restart() {
        kill();
        return launch();
    }

    /// Runs pactl against the daemon; its standard output, or absent on failure.
    std::optional<std::string> pactl(const std::vector<std::string>& arguments) const {
        std::string command =
            "HOME=" + quoted(dir_.path().string()) + " PULSE_SERVER=" + quoted(server_) + " pactl";
        for (const auto& argument : arguments)
            command += " " + quoted(argument);
        FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
        if (!pipe)
            return std::nullopt;
        std::string output;
        std::array<char, 4096> buffer{};
        for (std::size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
            output.append(buffer.data(), n);
        const int status = ::pclose(pipe);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
            return std::nullopt;
        return output;
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
        std::vector<std::string> arguments = {"load-module",
                                              "module-pipe-source",
                                              "source_name=" + name,
                                              "file=" + fifo.string(),
                                              "format=float32le",
                                              "rate=" + std::to_string(rate),
                                              "channels=" + std::to_string(channels),
                                              "source_properties=\"" + properties + "\""};
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
    static std::string quoted(const std::string& s) {
        std::string out = "'";
        for (char c : s)
            out += c == '\'' ? std::string("'\\''") : std::string(1, c);
        return out + "'";
    }

    bool launch() {
        // The daemon gets its own home and runtime folders; everything else is inherited.
        std::vector<std::string> environment;
        for (char** e = environ; *e; ++e) {
            const std::string entry = *e;
            bool replaced = false;
            for (const char* drop :
                 {"HOME=", "XDG_RUNTIME_DIR=", "PULSE_RUNTIME_PATH=", "XDG_CONFIG_HOME=",
                  "DBUS_SESSION_BUS_ADDRESS=", "PULSE_SERVER="})
                replaced = replaced || entry.rfind(drop, 0) == 0;
            if (!replaced)
                environment.push_back(entry);
        }
        environment.push_back("HOME=" + dir_.path().string());
        environment.push_back("XDG_RUNTIME_DIR=" + (dir_ / "run").string());
        environment.push_back("PULSE_RUNTIME_PATH=" + (dir_ / "run" / "pulse").string());
        environment.push_back("XDG_CONFIG_HOME=" + (dir_ / "config").string());
        std::vector<char*> envp;
        for (auto& entry : environment)
            envp.push_back(entry.data());
        envp.push_back(nullptr);

        const std::string logPath = (dir_ / "pulseaudio.log").string();
        pid_ = spawnWithOutput("/usr/bin/pulseaudio",
                               {"pulseaudio", "-n", "-F", (dir_ / "default.pa").string(),
                                "--daemonize=no", "--exit-idle-time=-1", "--system=false",
                                "--disallow-exit", "--use-pid-file=no", "--log-target=stderr",
                                "--disable-shm=yes"},
                               logPath, envp.data());
        if (pid_ <= 0) {
            failure_ = "cannot start pulseaudio";
            return false;
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                std::ifstream log(logPath);
                failure_ =
                    "pulseaudio exited: " + std::string(std::istreambuf_iterator<char>(log), {});
                return false;
            }
            if (std::filesystem::exists(dir_ / "native") && pactl({"info"})) {
                running_ = true;
                failure_.clear();
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        failure_ = "pulseaudio did not answer within 10 s";
        return false;
    }

    TemporaryDirectory dir_;
    std::string server_;
    std::string failure_;
    int pid_ = -1;
    bool running_ = false;
};

/// Writes interleaved float32 audio into a pipe source's FIFO at about `speed` times real
/// time, on the calling thread.
inline bool writeToFifo(const std::filesystem::path& fifo, const std::vector<float>& interleaved,
                        int channels, int rate, double speed = 1.0) {
    const int fd = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const auto start = std::chrono::steady_clock::now();
    const std::size_t frames = interleaved.size() / static_cast<std::size_t>(channels);
    bool ok = true;
    for (std::size_t done = 0; done < frames && ok;) {
        const std::size_t n = std::min<std::size_t>(256, frames - done);
        const char* bytes = reinterpret_cast<const char*>(interleaved.data() + done * channels);
        std::size_t left = n * channels * sizeof(float);
        while (left > 0) {
            const ssize_t written = ::write(fd, bytes, left);
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0) {
                ok = false;
                break;
            }
            bytes += written;
            left -= static_cast<std::size_t>(written);
        }
        done += n;
        std::this_thread::sleep_until(start +
                                      std::chrono::duration<double>(double(done) / rate / speed));
    }
    ::close(fd);
    return ok;
}

} // namespace kelvo::test
