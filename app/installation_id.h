// What a valid installation identifier is. Pure: no Windows calls.
#pragma once

#include <string_view>

namespace receiver {

// True for 36 characters in the 8-4-4-4-12 form of a GUID, hexadecimal digits in either case, without braces.
[[nodiscard]] bool IsInstallationId(std::string_view text) noexcept;

} // namespace receiver
