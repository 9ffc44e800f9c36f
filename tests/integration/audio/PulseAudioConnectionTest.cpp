#include "Audio/PulseAudio/PulseAudioConnection.h"

#include "Audio/Capture/AudioInputStream.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace kelvo {
namespace {

TEST(PulseAudioConnection, AServerThatNeverAnswersTimesOutInsteadOfHanging) {
    test::TemporaryDirectory dir;
    const auto path = dir / "silent";
    // Listens but never accepts or speaks: the client's handshake gets no reply.
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(listener, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 4), 0);

    ::setenv("PULSE_SERVER", ("unix:" + path.string()).c_str(), 1);
    const auto started = std::chrono::steady_clock::now();
    try {
        PulseAudioConnection connection("test", "test.pa", std::chrono::milliseconds(300));
        ADD_FAILURE() << "connected to a server that never answered";
    } catch (const AudioInputException& e) {
        EXPECT_STREQ(e.what(), "Audio server unavailable (timed out)");
    }
    ::unsetenv("PULSE_SERVER");
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    ::close(listener);
}

} // namespace
} // namespace kelvo
