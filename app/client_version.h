// The version that the program reports in the page address and in the diagnostics report. A constant of the protocol
// with pages, apart from the version of the package, which is in the properties of the programs.
#pragma once

#include <string_view>

namespace receiver {

inline constexpr std::wstring_view ClientVersion = L"0.1.3";

} // namespace receiver
