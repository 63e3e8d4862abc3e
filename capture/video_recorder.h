// Recording of the published frames. Not built yet: every operation answers as an idle recorder that cannot start.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

namespace receiver {

class VideoRecorder {
public:
    [[nodiscard]] bool Recording() const noexcept { return false; }
    [[nodiscard]] HRESULT Start(std::uint32_t width, std::uint32_t height, std::wstring* outPath) noexcept;
    // S_FALSE while idle.
    [[nodiscard]] HRESULT WriteFrame(const std::uint8_t* data, std::int32_t size) noexcept;
    // S_FALSE while idle.
    [[nodiscard]] HRESULT Stop(std::wstring* outPath) noexcept;
};

} // namespace receiver
