#pragma once

#include "support/ChildProcess.h"
#include "support/FileBytes.h"

#include <chrono>
#include <csignal>
#include <regex>
#include <thread>

namespace kelvo::test {

/// A `kelvo-devcloud` on a free loopback port, its output in `log`. The caller adds its own
/// options (always pass --state inside a temporary directory).
class DevCloudProcess {
public:
    DevCloudProcess(const std::string& program, std::vector<std::string> options,
                    std::filesystem::path log)
        : log_(std::move(log)) {
        std::vector<std::string> arguments{program, "--listen", "127.0.0.1:0"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        pid_ = spawnWithOutput(program, arguments, log_);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        static const std::regex listening("listening on (http://127\\.0\\.0\\.1:([0-9]+))");
        while (pid_ > 0 && std::chrono::steady_clock::now() < deadline) {
            std::smatch match;
            const std::string text = readText(log_);
            if (std::regex_search(text, match, listening)) {
                baseUrl_ = match[1];
                port_ = std::stoi(match[2]);
                return;
            }
            if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    ~DevCloudProcess() { stop(); }
    DevCloudProcess(const DevCloudProcess&) = delete;
    DevCloudProcess& operator=(const DevCloudProcess&) = delete;

    bool running() const { return port_ > 0 && pid_ > 0; }
    int port() const { return port_; }
    /// "http://127.0.0.1:PORT", no trailing slash.
    const std::string& baseUrl() const { return baseUrl_; }
    std::string output() const { return readText(log_); }

    /// Ends the server as a terminal would and waits for it; its exit code.
    int stop() {
        if (pid_ <= 0)
            return -1;
        ::kill(pid_, SIGTERM);
        const int code = waitForExit(pid_);
        pid_ = -1;
        return code;
    }

private:
    std::filesystem::path log_;
    pid_t pid_ = -1;
    int port_ = 0;
    std::string baseUrl_;
};

} // namespace kelvo::test
