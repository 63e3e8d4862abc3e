// A connection with one of the rig's servers on the Linux side.
#pragma once

#include <winsock2.h>

#include <windows.h>

namespace rig {

// Connects to the port that an environment variable names. INVALID_SOCKET with WSAGetLastError() when that fails.
[[nodiscard]] SOCKET ConnectToServer(const wchar_t* portVariable);

} // namespace rig
