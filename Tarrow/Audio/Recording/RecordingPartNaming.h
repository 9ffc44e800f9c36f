#pragma once

#include <chrono>
#include <string>

namespace kelvo {

/// Part names: the local time of the part's start, "yyyy-MM-dd_HH-mm-ss.wav", or with the
/// microseconds of that second ("yyyy-MM-dd_HH-mm-ss.dddddd.wav") when the plain name is
/// taken. Independent of the user's locale.
struct RecordingPartNaming {
    static std::string plainName(std::chrono::system_clock::time_point start);
    static std::string microsecondName(std::chrono::system_clock::time_point start);
};

} // namespace kelvo
