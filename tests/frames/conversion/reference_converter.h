// The conversion and the snapshot's colors as their formulas state them, one pixel at a time: slow, plain and shared
// with nothing in the product. Judges it; hand-computed pictures and colors in the tests judge this reference.
#pragma once

#include "frames/frame_message.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace receiver {

inline constexpr std::array<const wchar_t*, 7> SupportedFormats = {L"NV12", L"I420", L"I420A", L"RGBA",
                                                                   L"RGBX", L"BGRA", L"BGRX"};

// A sum shifted right by 8 bits, which rounds down, plus `offset`, within 0 to 255.
inline std::uint8_t ReferenceByte(int sum, int offset) {
    const int part = (sum - (sum % 256 + 256) % 256) / 256;
    return static_cast<std::uint8_t>(std::clamp(part + offset, 0, 255));
}

struct ReferenceColor {
    int red = 0;
    int green = 0;
    int blue = 0;

    [[nodiscard]] std::uint8_t Y() const { return ReferenceByte(66 * red + 129 * green + 25 * blue + 128, 16); }
    [[nodiscard]] std::uint8_t U() const { return ReferenceByte(-38 * red - 74 * green + 112 * blue + 128, 128); }
    [[nodiscard]] std::uint8_t V() const { return ReferenceByte(112 * red - 94 * green - 18 * blue + 128, 128); }
};

// The snapshot's pixel: blue, green, red.
inline std::array<std::uint8_t, 3> ReferencePixel(int y, int u, int v) {
    const int luma = 298 * (y - 16) + 128;
    return {ReferenceByte(luma + 516 * (u - 128), 0), ReferenceByte(luma - 100 * (u - 128) - 208 * (v - 128), 0),
            ReferenceByte(luma + 409 * (v - 128), 0)};
}

struct PlaneSize {
    std::uint64_t rowBytes = 0;
    std::uint64_t rowCount = 0;
};

// The planes from which a supported format is drawn, in its own order.
[[nodiscard]] std::vector<PlaneSize> ReferencePlanes(std::wstring_view format, std::uint32_t codedWidth,
                                                     std::uint32_t codedHeight);

// Bytes of the smallest slot that holds the planes. Only for offsets and strides below 2^48: it does not mind wrapping.
[[nodiscard]] std::uint64_t ReferenceSlotSize(const FrameDescriptor& frame);

[[nodiscard]] std::vector<std::uint8_t> BlackCanvas(std::uint32_t canvasWidth, std::uint32_t canvasHeight);

// The canvas that a supported frame gives. Throws std::out_of_range for a sample outside the slot.
[[nodiscard]] std::vector<std::uint8_t> ReferenceConvert(std::span<const std::uint8_t> slot,
                                                         const FrameDescriptor& frame, std::uint32_t canvasWidth,
                                                         std::uint32_t canvasHeight);

// The pixels of a snapshot of an NV12 frame, rows of blue, green and red bytes. Throws std::out_of_range, too.
[[nodiscard]] std::vector<std::uint8_t> ReferenceSnapshot(std::span<const std::uint8_t> frame, std::uint32_t width,
                                                          std::uint32_t height);

} // namespace receiver
