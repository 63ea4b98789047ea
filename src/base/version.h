#pragma once

namespace vt {
inline constexpr const char* kServiceName = "QuilletVantoreAgent";
inline constexpr const char16_t* kServiceNameW = u"QuilletVantoreAgent";
inline constexpr int kVersionMajor = 4;
inline constexpr int kVersionMinor = 4;
inline constexpr int kBuildNumber = 334;
inline constexpr const char* kReleaseText = "Final Release";
}  // namespace vt
