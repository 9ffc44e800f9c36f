#pragma once

#include <span>
#include <string>

namespace kelvo::test {

/// Writes mono float samples as a 24-bit PCM WAV file. Returns an error text, empty on success.
std::string writeMonoWav(const std::string& path, std::span<const float> samples, int sampleRate);

/// Writes a whole text file. Returns an error text, empty on success.
std::string writeTextFile(const std::string& path, const std::string& text);

} // namespace kelvo::test
