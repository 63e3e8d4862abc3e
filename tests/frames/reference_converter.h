// The conversion as its formulas state it, one pixel at a time: slow, plain and shared with nothing in the product.
// Judges FrameConverter; hand-computed pictures and colours in frame_converter_test.cpp judge this reference.
#pragma once

#include "frames/frame_message.h"

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace receiver {

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

} // namespace receiver
