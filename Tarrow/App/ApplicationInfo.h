#pragma once

namespace kelvo {

inline constexpr const char* applicationName = "Kelvo Bridge";
inline constexpr const char* applicationVersion = "0.1.0";
inline constexpr const char* organisationName = "Kelvo";
inline constexpr const char* settingsApplicationName = "KelvoBridge";
inline constexpr const char* localServerURL = "http://127.0.0.1:4041";

} // namespace kelvo
