// What can be seen of the windows of a process, as JSON.
#pragma once

#include <windows.h>

#include <string>

namespace rig {

// A JSON array of the top-level windows of `processIds`, the topmost first.
[[nodiscard]] std::string DescribeTopLevelWindows(const DWORD* processIds, std::size_t count);

// A JSON array of all windows inside `parent`.
[[nodiscard]] std::string DescribeChildren(HWND parent);

} // namespace rig
