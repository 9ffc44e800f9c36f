#pragma once

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <vector>

extern char** environ;

namespace kelvo::test {

/// Starts `program` with `arguments` (argv[0] included), its stdout and stderr going to the file
/// `output`; the child's pid, or -1.
inline pid_t spawnWithOutput(const std::string& program, std::vector<std::string> arguments,
                             const std::string& output) {
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    pid_t pid = -1;
    const int error = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0 ? pid : -1;
}

/// The child's exit code, or 128 + the signal that ended it; -1 when it cannot be waited for.
inline int waitForExit(pid_t pid) {
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// A server the test starts (`arguments` with argv[0] the program), ended with `signal` and
/// reaped when it goes.
class ChildProcess {
public:
    ChildProcess(std::vector<std::string> arguments, const std::string& output,
                 int signal = SIGTERM)
        : pid_(spawnWithOutput(arguments.front(), arguments, output)), signal_(signal) {}
    ~ChildProcess() {
        if (pid_ > 0) {
            ::kill(pid_, signal_);
            waitForExit(pid_);
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool running() const { return pid_ > 0; }

    /// Polls until `ready` holds; false once the child has exited or `timeout` has passed.
    bool waitUntil(const std::function<bool()>& ready, std::chrono::seconds timeout) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (pid_ > 0 && std::chrono::steady_clock::now() < deadline) {
            if (ready())
                return true;
            if (::waitpid(pid_, nullptr, WNOHANG) == pid_)
                pid_ = -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

private:
    pid_t pid_;
    const int signal_;
};

} // namespace kelvo::test
