#pragma once

namespace kelvo {

inline constexpr const char* applicationName = "Kelvo Bridge";
inline constexpr const char* applicationVersion = "0.1.0";
inline constexpr const char* organisationName = "Kelvo";
inline constexpr const char* settingsApplicationName = "KelvoBridge";

} // namespace kelvo
