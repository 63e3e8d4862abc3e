// The JSON texts that the host posts to the page: fixed key order, no spaces. Pure: no Windows calls.
#pragma once

#include "platform/hresult.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace receiver {

inline constexpr wchar_t UsageOnJson[] = L"{\"type\":\"virtual-camera-usage\",\"active\":true}";
inline constexpr wchar_t UsageOffJson[] = L"{\"type\":\"virtual-camera-usage\",\"active\":false}";

// Result of a capture command. `action` is one of the host's fixed words and is not escaped; in `path` backslashes and
// double quotes are escaped, nothing else. The code is written as an unsigned decimal, 0 for S_OK.
[[nodiscard]] std::wstring MediaResultJson(std::wstring_view action, HRESULT code, std::wstring_view path);

// Additional data of a posted frame slot: {"slot":0} or {"slot":1}.
[[nodiscard]] std::wstring SlotJson(unsigned slot);

struct OsVersion {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t build = 0;
};

// The report on the system. Supported: major version 10 or later with build 22000 or later.
[[nodiscard]] std::wstring DiagnosticsJson(const OsVersion& version, bool virtualCameraRegistered);

} // namespace receiver
