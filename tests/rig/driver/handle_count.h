// The number of handles of a process, from the system's list: Wine's GetProcessHandleCount always returns 0.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>

namespace rig {

// Empty when the system does not report it.
[[nodiscard]] std::optional<std::int64_t> CountHandles(DWORD processId);

} // namespace rig
