// Reads an environment variable of limited length.
#pragma once

#include <optional>
#include <string>

namespace receiver {

// The variable's value, of at most 259 characters. No value when it is unset, empty or longer; GetLastError() is then
// the code of the system's call, and may be 0 when the variable is too long.
[[nodiscard]] std::optional<std::wstring> ReadEnvironmentVariable(const wchar_t* name);

} // namespace receiver
