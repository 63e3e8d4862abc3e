// The pictures that the benchmark converts.
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
    std::uint32_t width; // of the planes, which lie one behind the other
    std::uint32_t height;
    std::uint32_t rotation; // degrees, clockwise
    bool mirrored;
    std::uint32_t canvasWidth;
    std::uint32_t canvasHeight;

    [[nodiscard]] FrameDescriptor Descriptor() const;
    // The picture keeps the shape that it has once it is turned.
    [[nodiscard]] bool IsSideways() const noexcept { return rotation % 180 != 0; }
    [[nodiscard]] std::size_t CanvasBytes() const noexcept { return std::size_t{canvasWidth} * canvasHeight * 3 / 2; }
    // Bytes in the source rows of which something is drawn.
    [[nodiscard]] std::size_t SourceBytes() const;
};

[[nodiscard]] const std::vector<FrameCase>& FrameCases();

} // namespace receiver
