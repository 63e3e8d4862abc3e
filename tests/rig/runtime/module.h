// The DLL itself, as windows classes need it.
#pragma once

#include <windows.h>

namespace rig {

[[nodiscard]] HINSTANCE ModuleHandle();

// Registers a class with the standard cursor; a class that exists already is left alone.
void RegisterWindowClass(const wchar_t* name, WNDPROC procedure);

} // namespace rig
