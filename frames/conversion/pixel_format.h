// What the conversion knows of a pixel format: how large its planes are, and how to load a row of Y and a row of U,V
// pairs out of a slot. A new format is a line in the table of pixel_format.cpp. Pure: no Windows calls.
#pragma once

#include "frames/conversion/row_kernels.h"
#include "frames/frame_message.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace receiver {

// One frame in its slot. The page may write to the bytes while they are read.
struct SourceFrame {
    const std::uint8_t* slot;
    const FrameDescriptor& frame;
    // RGB formats only: the pixels of a row that become U,V pairs. Each: those that the map picks, and room for them.
    UVPixels uvPixels;
    const RowMap& uvPixelMap;
    std::uint8_t* pickedPixels;
    const RowKernels& kernels;

    [[nodiscard]] const std::uint8_t* Row(std::size_t plane, std::uint32_t y) const noexcept {
        return slot + frame.planes[plane].offset + frame.planes[plane].stride * y;
    }
};

// How to get the rows of Y or of U,V pairs.
struct RowLoader {
    std::size_t plane = 0; // if `make` is null: the plane whose rows need no change
    // Otherwise writes row `y` to `buffer`. Row `ahead` is needed soon; its source may be prefetched.
    void (*make)(const SourceFrame& source, std::uint32_t y, std::uint32_t ahead, std::uint8_t* buffer) = nullptr;

    [[nodiscard]] bool InSlot() const noexcept { return make == nullptr; }
    [[nodiscard]] const std::uint8_t* Load(const SourceFrame& source, std::uint32_t y, std::uint32_t ahead,
                                           std::uint8_t* buffer) const noexcept {
        if (InSlot()) {
            return source.Row(plane, y);
        }
        make(source, y, ahead, buffer);
        return buffer;
    }
};

struct PlaneShape {
    std::uint32_t pixelsPerSample; // in each direction: 1, or 2 for subsampled U and V
    std::uint32_t bytesPerSample;
};

struct PixelFormat {
    std::wstring_view name;
    std::size_t planeCount; // number of planes that are read; a message may have more
    std::array<PlaneShape, 3> planes;
    RowLoader y; // a byte a pixel
    RowLoader uv; // two bytes a pair
    std::uint32_t pixelsPerUV; // 2: 2 x 2 pixels share a U,V pair in the slot; 1: pairs are computed from single pixels
};

// Null for a format that is not supported or lacks planes.
[[nodiscard]] const PixelFormat* FindPixelFormat(std::wstring_view name, std::size_t planeCount) noexcept;

// True when every plane that the format reads, as offset, stride and coded size describe it, lies inside a slot of
// `slotSize` bytes. The frame must have the planes.
[[nodiscard]] bool FitsSlot(const FrameDescriptor& frame, const PixelFormat& format, std::size_t slotSize) noexcept;

} // namespace receiver
