#include "App/OutputRelay.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace kelvo {

struct OutputRelay::State {
    int readEnd = -1;
    int destination = -1;
    std::atomic<bool> passing{false};
};

namespace {

// Waits as long as the destination does; once it is gone (EPIPE) what arrives is dropped.
void passOn(const std::shared_ptr<OutputRelay::State>& state) {
    char buffer[OutputRelay::bufferBytes];
    bool destinationGone = false;
    for (;;) {
        const ssize_t got = ::read(state->readEnd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return;
        state->passing = true;
        for (ssize_t sent = 0; sent < got && !destinationGone;) {
            const ssize_t wrote = ::write(state->destination, buffer + sent, size_t(got - sent));
            if (wrote >= 0) {
                sent += wrote;
            } else if (errno == EAGAIN) {
                // Someone made the shared destination non-blocking: wait for it here instead.
                pollfd writable{state->destination, POLLOUT, 0};
                ::poll(&writable, 1, -1);
            } else if (errno != EINTR) {
                destinationGone = true;
            }
        }
        state->passing = false;
    }
}

} // namespace

OutputRelay::OutputRelay(int fd) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return;
    const int destination = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
    // The write end is this process's own open file, so making it non-blocking leaves the
    // shell's terminal or the reader's pipe as they were.
    ::fcntl(ends[1], F_SETPIPE_SZ, bufferBytes);
    if (destination < 0 || ::fcntl(ends[1], F_SETFL, O_NONBLOCK) != 0 || ::dup2(ends[1], fd) < 0) {
        ::close(ends[0]);
        ::close(ends[1]);
        if (destination >= 0)
            ::close(destination);
        return;
    }
    ::close(ends[1]);
    auto state = std::make_shared<State>();
    state->readEnd = ends[0];
    state->destination = destination;
    try {
        // Detached: it may be blocked on the destination for good when the process ends.
        std::thread([state] { passOn(state); }).detach();
    } catch (const std::system_error&) {
        ::dup2(destination, fd);
        ::close(ends[0]);
        ::close(destination);
        return;
    }
    state_ = std::move(state);
}

OutputRelay::~OutputRelay() {
    if (!state_)
        return;
    const auto deadline = std::chrono::steady_clock::now() + drainTime;
    int queued = 0;
    while (std::chrono::steady_clock::now() < deadline &&
           ((::ioctl(state_->readEnd, FIONREAD, &queued) == 0 && queued > 0) || state_->passing))
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

} // namespace kelvo
