// The receiver's version as the page and the diagnostics report see it.
#pragma once

#include <string_view>

namespace receiver {

inline constexpr std::wstring_view ClientVersion = L"" VISTEL_CLIENT_VERSION;

} // namespace receiver
