// How many handles a process holds, told by the system: Wine's GetProcessHandleCount always answers 0.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>

namespace rig {

// Empty when the system does not tell.
[[nodiscard]] std::optional<std::int64_t> CountHandles(DWORD processId);

} // namespace rig
