#include "App/OutputRelay.h"
#include "App/HeadlessBridge.h"

#include "support/AppModelRig.h"
#include "support/QtEventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <future>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace kelvo {
namespace {

/// A pipe whose reader has stopped: its buffer is full.
struct StalledPipe {
    StalledPipe() {
        EXPECT_EQ(::pipe(ends), 0);
        ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
        const std::string block(4096, 'x');
        while (::write(ends[1], block.data(), block.size()) > 0)
            filled += block.size();
        while (::write(ends[1], "x", 1) > 0)
            ++filled;
        ::fcntl(ends[1], F_SETFL, 0);
    }
    ~StalledPipe() {
        ::close(ends[0]);
        ::close(ends[1]);
    }
    /// Everything that arrives until nothing has for half a second.
    std::string drain() {
        std::string text;
        char buffer[65536];
        pollfd readable{ends[0], POLLIN, 0};
        while (::poll(&readable, 1, 500) > 0) {
            const ssize_t got = ::read(ends[0], buffer, sizeof buffer);
            if (got <= 0)
                break;
            text.append(buffer, std::size_t(got));
        }
        return text;
    }
    int ends[2] = {-1, -1};
    std::size_t filled = 0;
};

TEST(OutputRelay, AStalledReaderNeverBlocksTheWriterAndWholeLinesArriveOnceItReads) {
    StalledPipe pipe;
    const OutputRelay relay(pipe.ends[1]);
    ASSERT_TRUE(relay.isRelaying());
    // Without the relay the first write would wait for the reader for good: a watchdog, not a
    // clock, tells.
    auto writes = std::async(std::launch::async, [&] {
        int refused = 0;
        for (int i = 0; i < 2000; ++i) {
            char line[101];
            std::snprintf(line, sizeof line, "%04d %094d\n", i, 0);
            if (::write(pipe.ends[1], line, 100) != 100)
                ++refused;
        }
        return refused;
    });
    ASSERT_EQ(writes.wait_for(std::chrono::seconds(30)), std::future_status::ready)
        << "a write waited for the stalled reader";
    EXPECT_GT(writes.get(), 0) << "what does not fit is dropped";

    const std::string arrived = pipe.drain().substr(pipe.filled);
    ASSERT_FALSE(arrived.empty());
    int previous = -1;
    for (std::size_t at = 0; at < arrived.size(); at += 100) {
        ASSERT_EQ(arrived.substr(at + 99, 1), "\n") << "a line arrived cut at " << at;
        const int number = std::stoi(arrived.substr(at, 4));
        EXPECT_GT(number, previous) << "in order, none twice";
        previous = number;
    }
    ASSERT_EQ(::write(pipe.ends[1], "after\n", 6), 6);
    EXPECT_EQ(pipe.drain(), "after\n") << "the reader is back: lines go through again";
}

TEST(OutputRelay, ALineTheHeadlessOutputCannotTakeIsCountedAndTheNextLineSaysSo) {
    test::qtApplication();
    test::AppModelRig rig;
    rig.seedCache();
    StalledPipe pipe;
    ::fcntl(pipe.ends[1], F_SETFL, O_NONBLOCK); // as the relay's own pipe is
    std::FILE* out = ::fdopen(::dup(pipe.ends[1]), "w");
    LaunchOptions options;
    options.audioDeviceUID = "absent";
    HeadlessBridge bridge(rig.makeModel(), options, out);
    bridge.start();
    EXPECT_EQ(bridge.linesLost(), 1u) << "the absent input's line did not fit";

    ASSERT_EQ(pipe.drain().size(), pipe.filled) << "nothing half written";
    std::string printed;
    ASSERT_TRUE(test::pumpUntil([&] { return !(printed += pipe.drain()).empty(); },
                                std::chrono::seconds(5)));
    EXPECT_THAT(printed,
                testing::StartsWith("(lines not shown while the output was not being read: 1)\n"));
    EXPECT_THAT(printed, testing::HasSubstr("ticks/s")) << "then the status line";
    EXPECT_EQ(bridge.linesLost(), 0u);
    bridge.shutdown();
    std::fclose(out);
}

} // namespace
} // namespace kelvo
