#include "tests/rig/recorder/encoder_link.h"

#include "tests/rig/runtime/server_socket.h"

#include <algorithm>
#include <climits>

namespace rig {
namespace {

HRESULT SocketResult() { return HRESULT_FROM_WIN32(static_cast<DWORD>(WSAGetLastError())); }

} // namespace

EncoderLink::~EncoderLink() {
    if (socket != INVALID_SOCKET) {
        closesocket(socket);
    }
}

HRESULT EncoderLink::Connect() {
    socket = ConnectToServer(L"RIG_RECORDER_PORT");
    return socket != INVALID_SOCKET ? S_OK : SocketResult();
}

HRESULT EncoderLink::Send(const void* bytes, std::size_t size) {
    const char* next = static_cast<const char*>(bytes);
    while (size > 0) {
        const int count = send(socket, next, static_cast<int>(std::min<std::size_t>(size, INT_MAX)), 0);
        if (count == SOCKET_ERROR) {
            return SocketResult();
        }
        next += count;
        size -= static_cast<std::size_t>(count);
    }
    return S_OK;
}

HRESULT EncoderLink::ReceiveResult() {
    HRESULT result = S_OK; // Both sides are little-endian.
    char* next = reinterpret_cast<char*>(&result);
    for (int missing = sizeof(result); missing > 0;) {
        const int count = recv(socket, next, missing, 0);
        if (count <= 0) {
            return count == 0 ? HRESULT_FROM_WIN32(WSAECONNRESET) : SocketResult();
        }
        next += count;
        missing -= count;
    }
    return result;
}

} // namespace rig
