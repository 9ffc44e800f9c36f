#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace kelvo::test {

inline std::string readText(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline std::vector<std::uint8_t> readBytes(const std::filesystem::path& path) {
    const std::string text = readText(path);
    return {text.begin(), text.end()};
}

inline void writeText(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

inline void writeBytes(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes) {
    writeText(path, std::string(bytes.begin(), bytes.end()));
}

inline std::uint32_t u32At(const std::vector<std::uint8_t>& b, std::size_t offset) {
    return std::uint32_t(b[offset]) | std::uint32_t(b[offset + 1]) << 8 |
           std::uint32_t(b[offset + 2]) << 16 | std::uint32_t(b[offset + 3]) << 24;
}

inline std::uint16_t u16At(const std::vector<std::uint8_t>& b, std::size_t offset) {
    return static_cast<std::uint16_t>(b[offset] | b[offset + 1] << 8);
}

} // namespace kelvo::test
