// The text of a frame message, parsed into a FrameDescriptor. Pure: no Windows calls.
// The slot digit is handled by the caller (frames/frame_slots.cpp).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace receiver {

// Bytes of one frame slot: a 1920 x 1080 frame at 4 bytes per pixel.
inline constexpr std::uint32_t SlotSize = 1920 * 1080 * 4;

inline constexpr std::size_t MaxPlanes = 4; // of any supported format

// Where one plane lies in its slot, in bytes. Both values come from the page and are not trusted.
struct PlaneLayout {
    std::uint64_t offset = 0;
    std::uint64_t stride = 0; // bytes per row

    bool operator==(const PlaneLayout&) const = default;
};

// One frame as the page describes it.
struct FrameDescriptor {
    std::wstring_view format; // the page's name of the pixel format, such as "NV12"; part of the parsed text
    std::uint32_t codedWidth = 0; // size of the planes in the slot, even
    std::uint32_t codedHeight = 0;
    bool flipA = false;
    std::uint32_t rotation = 0; // degrees, clockwise: 0, 90, 180 or 270
    bool flipB = false;
    std::uint32_t displayWidth = 0; // used only for the aspect ratio
    std::uint32_t displayHeight = 0;
    std::size_t planeCount = 0; // in the message; it may have more than are stored
    std::array<PlaneLayout, MaxPlanes> planes; // the first ones, in the format's own order

    bool operator==(const FrameDescriptor&) const = default;

    void AddPlane(const PlaneLayout& plane) noexcept {
        if (planeCount < planes.size()) {
            planes[planeCount] = plane;
        }
        ++planeCount;
    }
};

// Parses "format:codedWidth:codedHeight:flipA:rotation:flipB:displayWidth:displayHeight:offset,stride;offset,stride..."
// and checks every limit except the planes' extent. Any number of planes is accepted and all of them are checked.
// False for any malformed text; `descriptor` is then unspecified.
[[nodiscard]] bool ParseFrameDescriptor(std::wstring_view text, FrameDescriptor& descriptor) noexcept;

} // namespace receiver
