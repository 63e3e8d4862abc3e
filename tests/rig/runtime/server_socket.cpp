#include "server_socket.h"

#include "text_lines.h"

#include <cstdlib>

namespace rig {

SOCKET ConnectToServer(const wchar_t* portVariable) {
    static WSADATA winsock;
    static const int startResult = WSAStartup(MAKEWORD(2, 2), &winsock);
    const unsigned long port = std::wcstoul(EnvironmentValue(portVariable).c_str(), nullptr, 10);
    if (startResult != 0 || port == 0 || port > 0xFFFF) {
        WSASetLastError(startResult != 0 ? startResult : WSAEADDRNOTAVAIL);
        return INVALID_SOCKET;
    }
    const SOCKET connection = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u_short>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        const int error = WSAGetLastError();
        closesocket(connection);
        WSASetLastError(error);
        return INVALID_SOCKET;
    }
    const BOOL noDelay = TRUE;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&noDelay), sizeof(noDelay));
    return connection;
}

} // namespace rig
