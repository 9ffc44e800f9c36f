#pragma once

#include "support/ChildProcess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "support/TemporaryDirectory.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

extern char** environ;

namespace kelvo::test {

/// A private PulseAudio daemon on its own socket and runtime folder, for the lifetime of
/// the object. Sets PULSE_SERVER for this process so every client in it talks to the daemon.
class PulseAudioServer {
public:
    PulseAudioServer();
    ~PulseAudioServer();
    PulseAudioServer(const PulseAudioServer&) = delete;
    PulseAudioServer& operator=(const PulseAudioServer&) = delete;

    /// Whether the daemon runs and answers; `failure()` says why not.
    bool running() const { return running_; }
    /// Kills the daemon with SIGKILL (its clients get no goodbye) and waits for it.
    void kill();
    /// Starts the daemon again on the same socket, with only the speakers sink; true when it
    /// answers.
    bool restart();
    const std::string& failure() const { return failure_; }
    const std::string& serverAddress() const { return server_; }

    /// Runs pactl against the daemon; returns its standard output, or absent on failure.
    std::optional<std::string> pactl(const std::vector<std::string>& arguments) const;

    /// A source fed through a FIFO (float32le): returns the module index. `properties` is the
    /// source_properties text, e.g. "device.description='DJM-A9' device.bus=usb".
    struct PipeSource {
        int module = -1;
        std::filesystem::path fifo;
    };
    std::optional<PipeSource> loadPipeSource(const std::string& name, const std::string& properties,
                                             int rate, int channels);
    std::optional<int> loadNullSink(const std::string& name, const std::string& properties,
                                    int rate);
    bool unloadModule(int module) const;

private:
    bool launch();

    TemporaryDirectory dir_;
    std::string server_;
    std::string failure_;
    int pid_ = -1;
    bool running_ = false;
};

/// Writes interleaved float32 audio into a pipe source's FIFO at about `speed` times real
/// time, on the calling thread.
bool writeToFifo(const std::filesystem::path& fifo, const std::vector<float>& interleaved,
                 int channels, int rate, double speed = 1.0);

namespace detail {

inline std::string quoteForShell(const std::string& s) {
    std::string out = "'";
    for (char c : s) {
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    return out + "'";
}

inline std::optional<std::string> runCapturing(const std::string& command) {
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe)
        return std::nullopt;
    std::string output;
    std::array<char, 4096> buffer{};
    std::size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        output.append(buffer.data(), n);
    const int status = ::pclose(pipe);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return std::nullopt;
    return output;
}

} // namespace detail

inline PulseAudioServer::PulseAudioServer() {
    const auto socket = dir_ / "native";
    server_ = "unix:" + socket.string();
    const auto runtime = dir_ / "run";
    std::filesystem::create_directories(runtime / "pulse");
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
    {
        std::ofstream script(dir_ / "default.pa");
        script << "load-module module-native-protocol-unix auth-anonymous=1 socket="
               << socket.string() << "\n";
        script << "load-module module-null-sink sink_name=speakers rate=48000 "
                  "sink_properties=device.description=Speakers\n";
        script << "set-default-sink speakers\n";
    }
    if (::access("/usr/bin/pulseaudio", X_OK) != 0) {
        failure_ = "pulseaudio is not installed (scripts/setup installs it)";
        return;
    }
    if (launch())
        ::setenv("PULSE_SERVER", server_.c_str(), 1);
}

inline bool PulseAudioServer::launch() {
    const auto socket = dir_ / "native";
    const auto runtime = dir_ / "run";
    // The daemon gets its own home and runtime folders; everything else is inherited.
    std::vector<std::string> environment;
    for (char** e = environ; *e; ++e) {
        const std::string entry = *e;
        for (const char* drop : {"HOME=", "XDG_RUNTIME_DIR=", "PULSE_RUNTIME_PATH=",
                                 "XDG_CONFIG_HOME=", "DBUS_SESSION_BUS_ADDRESS=", "PULSE_SERVER="})
            if (entry.rfind(drop, 0) == 0)
                goto skip;
        environment.push_back(entry);
    skip:;
    }
    environment.push_back("HOME=" + dir_.path().string());
    environment.push_back("XDG_RUNTIME_DIR=" + runtime.string());
    environment.push_back("PULSE_RUNTIME_PATH=" + (runtime / "pulse").string());
    environment.push_back("XDG_CONFIG_HOME=" + (dir_ / "config").string());
    std::vector<char*> envp;
    for (auto& entry : environment)
        envp.push_back(entry.data());
    envp.push_back(nullptr);

    const std::string logPath = (dir_ / "pulseaudio.log").string();
    const std::string config = (dir_ / "default.pa").string();
    std::vector<std::string> args = {"pulseaudio",
                                     "-n",
                                     "-F",
                                     config,
                                     "--daemonize=no",
                                     "--exit-idle-time=-1",
                                     "--system=false",
                                     "--disallow-exit",
                                     "--use-pid-file=no",
                                     "--log-target=stderr",
                                     "--disable-shm=yes"};
    const pid_t pid = spawnWithOutput("/usr/bin/pulseaudio", args, logPath, envp.data());
    if (pid <= 0) {
        failure_ = "cannot start pulseaudio";
        return false;
    }
    pid_ = pid;

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            std::ifstream log(logPath);
            failure_ = "pulseaudio exited: " + std::string(std::istreambuf_iterator<char>(log), {});
            return false;
        }
        if (std::filesystem::exists(socket) && pactl({"info"})) {
            running_ = true;
            failure_.clear();
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    failure_ = "pulseaudio did not answer within 10 s";
    return false;
}

inline void PulseAudioServer::kill() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
    }
    running_ = false;
}

inline bool PulseAudioServer::restart() {
    kill();
    return launch();
}

inline PulseAudioServer::~PulseAudioServer() {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        int status = 0;
        for (int i = 0; i < 100; ++i) {
            if (::waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, &status, 0);
        }
    }
    ::unsetenv("PULSE_SERVER");
}

inline std::optional<std::string>
PulseAudioServer::pactl(const std::vector<std::string>& arguments) const {
    std::string command = "HOME=" + detail::quoteForShell(dir_.path().string()) +
                          " PULSE_SERVER=" + detail::quoteForShell(server_) + " pactl";
    for (const auto& argument : arguments)
        command += " " + detail::quoteForShell(argument);
    command += " 2>/dev/null";
    return detail::runCapturing(command);
}

inline std::optional<PulseAudioServer::PipeSource>
PulseAudioServer::loadPipeSource(const std::string& name, const std::string& properties, int rate,
                                 int channels) {
    const auto fifo = dir_ / (name + ".fifo");
    const auto output =
        pactl({"load-module", "module-pipe-source", "source_name=" + name, "file=" + fifo.string(),
               "format=float32le", "rate=" + std::to_string(rate),
               "channels=" + std::to_string(channels), "source_properties=\"" + properties + "\""});
    if (!output)
        return std::nullopt;
    return PipeSource{std::stoi(*output), fifo};
}

inline std::optional<int> PulseAudioServer::loadNullSink(const std::string& name,
                                                         const std::string& properties, int rate) {
    const auto output =
        pactl({"load-module", "module-null-sink", "sink_name=" + name,
               "rate=" + std::to_string(rate), "sink_properties=\"" + properties + "\""});
    if (!output)
        return std::nullopt;
    return std::stoi(*output);
}

inline bool PulseAudioServer::unloadModule(int module) const {
    return pactl({"unload-module", std::to_string(module)}).has_value();
}

inline bool writeToFifo(const std::filesystem::path& fifo, const std::vector<float>& interleaved,
                        int channels, int rate, double speed) {
    const int fd = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const std::size_t chunkFrames = 256;
    const auto start = std::chrono::steady_clock::now();
    std::size_t frames = interleaved.size() / static_cast<std::size_t>(channels);
    bool ok = true;
    for (std::size_t done = 0; done < frames && ok;) {
        const std::size_t n = std::min(chunkFrames, frames - done);
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
