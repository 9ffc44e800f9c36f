#include "Audio/Recording/RecordingPartNaming.h"

#include <cstdio>
#include <ctime>

namespace kelvo {

namespace {

std::string stamp(std::chrono::system_clock::time_point start) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(start);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d_%02d-%02d-%02d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return text;
}

} // namespace

std::string RecordingPartNaming::plainName(std::chrono::system_clock::time_point start) {
    return stamp(start) + ".wav";
}

std::string RecordingPartNaming::microsecondName(std::chrono::system_clock::time_point start) {
    const auto sinceEpoch = start.time_since_epoch();
    const auto wholeSeconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch - wholeSeconds).count();
    char suffix[16];
    std::snprintf(suffix, sizeof suffix, ".%06d", static_cast<int>(micros));
    return stamp(start) + suffix + ".wav";
}

} // namespace kelvo
