#pragma once

#include "support/ChildProcess.h"
#include "support/FileBytes.h"

#include <optional>
#include <regex>

namespace kelvo::test {

/// A `kelvo-devcloud` on a free loopback port, its output in `log`. The caller adds its own
/// options (always pass --state inside a temporary directory).
class DevCloudProcess {
public:
    DevCloudProcess(const std::string& program, std::vector<std::string> options,
                    std::filesystem::path log)
        : log_(std::move(log)) {
        options.insert(options.begin(), {program, "--listen", "127.0.0.1:0"});
        process_.emplace(options, log_);
        static const std::regex listening("listening on (http://127\\.0\\.0\\.1:[0-9]+)");
        process_->waitUntil(
            [&] {
                std::smatch match;
                const std::string text = output();
                if (std::regex_search(text, match, listening))
                    baseUrl_ = match[1];
                return !baseUrl_.empty();
            },
            std::chrono::seconds(15));
    }

    bool running() const { return process_->running() && !baseUrl_.empty(); }
    /// "http://127.0.0.1:PORT", no trailing slash.
    const std::string& baseUrl() const { return baseUrl_; }
    std::string output() const { return readText(log_); }

private:
    std::filesystem::path log_;
    std::string baseUrl_;
    std::optional<ChildProcess> process_;
};

} // namespace kelvo::test
