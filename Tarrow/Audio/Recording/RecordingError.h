#pragma once

#include <string_view>

namespace kelvo {

/// Why a recording could not start or stopped by itself.
enum class RecordingError { invalidFormat, writerOverloaded };

constexpr std::string_view description(RecordingError error) {
    switch (error) {
    case RecordingError::invalidFormat:
        return "The audio input format cannot be recorded.";
    case RecordingError::writerOverloaded:
        return "The disk could not keep up. Recording stopped; earlier audio was saved.";
    }
    return {};
}

} // namespace kelvo
