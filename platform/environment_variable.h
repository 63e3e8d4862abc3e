// Reading an environment variable with the receiver's one limit on its length.
#pragma once

#include <optional>
#include <string>

namespace receiver {

// The variable's value, of at most 259 characters. Empty optional when it is unset, empty or longer; GetLastError() is
// then what the system left there, and may be 0 when the value is merely too long.
[[nodiscard]] std::optional<std::wstring> ReadEnvironmentVariable(const wchar_t* name);

} // namespace receiver
