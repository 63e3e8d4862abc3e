// One NV12 frame: a full-resolution Y plane followed by U,V pairs at half resolution in both directions, tightly
// packed. Pure: no Windows calls.
#pragma once

#include <cstdint>
#include <span>

namespace receiver {

// Bytes of a frame of an even size.
[[nodiscard]] constexpr std::uint32_t Nv12Size(std::uint32_t width, std::uint32_t height) noexcept {
    return width * height * 3 / 2;
}

// Borrows the bytes.
struct Nv12Frame {
    std::span<const std::uint8_t> bytes; // Nv12Size(width, height) of them, or none
    std::uint32_t width = 0; // pixels, even
    std::uint32_t height = 0;
};

} // namespace receiver
