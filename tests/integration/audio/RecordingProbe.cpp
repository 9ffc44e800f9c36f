// Records a known stereo signal at 48 kHz through the WAV writer until it is killed, the
// time is up or the disk refuses. Prints "pid <pid>" and "part <path>" once, "frames <n>"
// after every buffer handed to the writer, and "failed: <text>" (exit 3) when the recording
// stops.
//
//   kelvo_recording_probe <folder> [--seconds S] [--fast] [--file-size-limit BYTES]
#include "Audio/Recording/AudioRecordingWriter.h"

#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace {

float probeSample(std::uint64_t frame, int channel) {
    return static_cast<float>(0.5 * std::sin(0.01 * double(frame) * (channel + 1)));
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr,
                     "usage: %s <folder> [--seconds S] [--fast] [--file-size-limit BYTES]\n",
                     argv[0]);
        return 2;
    }
    double seconds = 3600;
    bool fast = false;
    for (int i = 2; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--seconds") && i + 1 < argc)
            seconds = std::atof(argv[++i]);
        else if (!std::strcmp(argv[i], "--fast"))
            fast = true;
        else if (!std::strcmp(argv[i], "--file-size-limit") && i + 1 < argc) {
            const rlim_t limit = std::strtoull(argv[++i], nullptr, 10);
            const rlimit value{limit, limit};
            if (::setrlimit(RLIMIT_FSIZE, &value) != 0) {
                std::perror("setrlimit");
                return 2;
            }
        }
    }

    std::printf("pid %d\n", static_cast<int>(::getpid()));
    std::atomic<bool> failed{false};
    kelvo::AudioRecordingWriter writer;
    std::promise<kelvo::AudioRecordingWriter::Started> opened;
    writer.start(
        48000, 2, argv[1],
        [&](const std::string& text) {
            std::printf("failed: %s\n", text.c_str());
            std::fflush(stdout);
            failed = true;
        },
        [&](const kelvo::AudioRecordingWriter::Started& outcome) { opened.set_value(outcome); });
    const kelvo::AudioRecordingWriter::Started outcome = opened.get_future().get();
    if (outcome.error) {
        std::printf("failed: %s\n", outcome.error->c_str());
        return 3;
    }
    std::printf("part %s\n", outcome.firstFile.c_str());
    std::fflush(stdout);

    constexpr std::uint32_t chunk = 480;
    std::vector<float> buffer(chunk * 2);
    std::uint64_t frames = 0;
    const auto start = std::chrono::steady_clock::now();
    while (!failed && frames < static_cast<std::uint64_t>(seconds * 48000)) {
        for (std::uint32_t f = 0; f < chunk; ++f)
            for (int c = 0; c < 2; ++c)
                buffer[f * 2 + c] = probeSample(frames + f, c);
        const kelvo::AudioBuffer list{2, buffer.data()};
        writer.capture(kelvo::AudioBufferListView(&list, 1), chunk, 2);
        frames += chunk;
        std::printf("frames %llu\n", static_cast<unsigned long long>(frames));
        std::fflush(stdout);
        if (fast)
            writer.waitUntilIdle();
        else
            std::this_thread::sleep_until(start +
                                          std::chrono::microseconds(frames * 1000000 / 48000));
    }
    writer.stop();
    writer.waitUntilIdle();
    return failed ? 3 : 0;
}
