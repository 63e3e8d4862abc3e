// The TCP connection of one recording to the encoder server. All calls wait for what they do.
#pragma once

#include <winsock2.h>

#include <windows.h>

#include <cstddef>

namespace rig {

class EncoderLink {
public:
    EncoderLink() = default;
    EncoderLink(const EncoderLink&) = delete;
    EncoderLink& operator=(const EncoderLink&) = delete;
    ~EncoderLink();

    // Connects to the port that RIG_RECORDER_PORT names.
    [[nodiscard]] HRESULT Connect();
    [[nodiscard]] HRESULT Send(const void* bytes, std::size_t size);
    // The server's next answer; the socket's error where none comes any more.
    [[nodiscard]] HRESULT ReceiveResult();

private:
    SOCKET socket = INVALID_SOCKET;
};

} // namespace rig
