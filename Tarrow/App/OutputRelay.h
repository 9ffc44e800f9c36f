#pragma once

#include <chrono>
#include <memory>

namespace kelvo {

/// Keeps a stalled output (a pipe nobody reads, a terminal held by Ctrl-S, a slow disk) from
/// ever blocking whoever writes to it. The descriptor is replaced by a small pipe whose writes
/// never block: a write that does not fit fails at once and is lost, a whole line at a time for
/// lines up to PIPE_BUF. A thread of its own passes what arrives on to where the descriptor
/// pointed before, and may block there as long as it likes.
class OutputRelay {
public:
    static constexpr int bufferBytes = 16384;
    static constexpr std::chrono::milliseconds drainTime{1000};

    /// Relays `fd` from now on. When the pipe or the thread cannot be made, `fd` is left as it
    /// was and `isRelaying` is false.
    explicit OutputRelay(int fd);
    /// Waits at most `drainTime` for what is queued to be passed on; the rest is lost with the
    /// process. `fd` stays the relay's pipe, so late writers still never block.
    ~OutputRelay();
    OutputRelay(const OutputRelay&) = delete;
    OutputRelay& operator=(const OutputRelay&) = delete;

    bool isRelaying() const { return state_ != nullptr; }

    struct State;

private:
    std::shared_ptr<State> state_;
};

} // namespace kelvo
