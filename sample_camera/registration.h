// Registers the camera as a video capture device, for one user or for the machine, and removes every key again.
#pragma once

#include <windows.h>

namespace sample_camera {

// `root` is HKEY_CURRENT_USER or HKEY_LOCAL_MACHINE; `modulePath` is the DLL.
[[nodiscard]] HRESULT Register(HKEY root, const wchar_t* modulePath) noexcept;
// Succeeds also when nothing is registered.
[[nodiscard]] HRESULT Unregister(HKEY root) noexcept;

} // namespace sample_camera
