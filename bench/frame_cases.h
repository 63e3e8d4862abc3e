// The frames that the benchmark converts.
#pragma once

#include "frames/frame_message.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace receiver {

struct FrameCase {
    std::string name;
    std::wstring format; // NV12, I420, RGBA or BGRA
    std::uint32_t width; // of the planes, which follow each other without padding
    std::uint32_t height;
    std::uint32_t rotation; // degrees, clockwise
    bool mirrored;
    std::uint32_t canvasWidth;
    std::uint32_t canvasHeight;

    [[nodiscard]] FrameDescriptor Descriptor() const;
    // The display size is that of the rotated frame.
    [[nodiscard]] bool IsTransposed() const noexcept { return rotation % 180 != 0; }
    [[nodiscard]] std::size_t CanvasBytes() const noexcept { return std::size_t{canvasWidth} * canvasHeight * 3 / 2; }
    // Bytes of the source rows that the conversion reads.
    [[nodiscard]] std::size_t SourceBytes() const;
};

[[nodiscard]] const std::vector<FrameCase>& FrameCases();

} // namespace receiver
