// The receiver's version as sent in the page address and in the diagnostics report.
#pragma once

#include <string_view>

namespace receiver {

inline constexpr std::wstring_view ClientVersion = L"" VISTEL_CLIENT_VERSION;

} // namespace receiver
