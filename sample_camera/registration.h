// Registers the camera as a video capture device, for one user or for the machine, and removes every key again.
#pragma once

#include <windows.h>

namespace sample_camera {

// Its default value is the path of the registered DLL.
inline constexpr wchar_t ServerKey[] =
    L"Software\\Classes\\CLSID\\{C132191D-7DC1-4EB6-8914-B912B15C22B0}\\InprocServer32";

// `root` is HKEY_CURRENT_USER or HKEY_LOCAL_MACHINE; `modulePath` is the DLL.
[[nodiscard]] HRESULT Register(HKEY root, const wchar_t* modulePath) noexcept;
// Succeeds also when nothing is registered.
[[nodiscard]] HRESULT Unregister(HKEY root) noexcept;

} // namespace sample_camera
