// Everything about the conversion of a frame that stays the same until the page sends another geometry: where the
// picture lies on the canvas, and which source row and sample each of its samples takes. Pure: no Windows calls.
#pragma once

#include "frames/conversion/pixel_format.h"
#include "frames/conversion/row_map.h"
#include "frames/frame_message.h"

#include <cstdint>
#include <vector>

namespace receiver {

// A rectangle on the canvas in pixels, all four numbers even.
struct PictureRectangle {
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;

    bool operator==(const PictureRectangle&) const = default;
};

// The largest picture of the display size's aspect ratio that fits the canvas, centered.
[[nodiscard]] PictureRectangle FitPicture(std::uint32_t displayWidth, std::uint32_t displayHeight,
                                          std::uint32_t canvasWidth, std::uint32_t canvasHeight) noexcept;

// One plane of the picture: Y, or U,V pairs.
struct PlanePlan {
    RowLoader loader;
    std::vector<std::uint32_t> rows; // source row of each destination row (of each destination column if transposed)
    RowMap map; // along a source row
    std::size_t rowsAhead = 0; // The source of the row this many destination rows later is prefetched.
    bool isCopy = false; // Slot and canvas have the same layout of this plane: one copy converts it.
};

struct FramePlan {
    // For a canvas of `width` x `height`, even and at most 4096. The descriptor must be within the parser's limits and
    // have the planes that the format reads, inside the slot.
    FramePlan(const FrameDescriptor& descriptor, const PixelFormat& pixelFormat, std::uint32_t width,
              std::uint32_t height);

    // True when this is the plan of such a frame, regardless of the slot's content.
    [[nodiscard]] bool IsFor(const FrameDescriptor& other, std::uint32_t otherCanvasWidth,
                             std::uint32_t otherCanvasHeight) const noexcept;

    FrameDescriptor frame; // frame.format views a constant
    const PixelFormat* format;
    std::uint32_t canvasWidth; // even, as is the height
    std::uint32_t canvasHeight;
    PictureRectangle picture;
    bool transposed; // rotated by 90 or 270 degrees: source rows become columns
    UVPixels uvPixels = UVPixels::Each; // see SourceFrame
    RowMap uvPixelMap;
    PlanePlan y;
    PlanePlan uv;
};

} // namespace receiver
