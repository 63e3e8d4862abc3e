#include "platform/environment_variable.h"

#include <windows.h>

#include <array>

namespace receiver {

std::optional<std::wstring> ReadEnvironmentVariable(const wchar_t* name) {
    std::array<wchar_t, 260> value{};
    const DWORD length = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
    if (length == 0 || length >= value.size()) {
        return std::nullopt;
    }
    return std::wstring(value.data(), length);
}

} // namespace receiver
