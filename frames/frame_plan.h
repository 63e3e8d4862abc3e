// The geometry of a conversion and everything about it that stays the same from frame to frame: where the picture lies
// on the canvas and where in the slot each of its samples is read. Pure: no Windows calls.
#pragma once

#include "frames/frame_message.h"
#include "frames/row_pattern.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace receiver {

// How the bytes of a supported format lie in a slot. Alpha and padding are never read.
enum class PixelLayout {
    Nv12, // Y plane, U,V plane
    Planar, // Y, U and V planes
    Rgba, // one plane of 4-byte pixels, red first
    Bgra, // one plane of 4-byte pixels, blue first
};

// The layout of the page's format name, if it is supported and has the planes it needs.
[[nodiscard]] std::optional<PixelLayout> RecognizeFormat(std::wstring_view format, std::size_t planeCount) noexcept;

// What a plan depends on; two frames of equal geometry share a plan.
struct FrameGeometry {
    PixelLayout layout = PixelLayout::Nv12;
    std::uint32_t codedWidth = 0;
    std::uint32_t codedHeight = 0;
    std::uint32_t rotation = 0; // degrees, clockwise
    bool mirrored = false;
    std::uint32_t displayWidth = 0;
    std::uint32_t displayHeight = 0;
    std::uint32_t canvasWidth = 0; // even, as is the height
    std::uint32_t canvasHeight = 0;
    std::array<PlaneLayout, 3> planes; // those that the layout uses, the rest zero

    bool operator==(const FrameGeometry&) const = default;
};

// The descriptor must have the planes that `layout` needs (see RecognizeFormat).
[[nodiscard]] FrameGeometry MakeGeometry(const FrameDescriptor& descriptor, PixelLayout layout,
                                         std::uint32_t canvasWidth, std::uint32_t canvasHeight) noexcept;

// True when every plane that the layout reads, as offset, stride and coded size describe it, lies inside a slot of
// `slotSize` bytes.
[[nodiscard]] bool FitsSlot(const FrameGeometry& geometry, std::size_t slotSize) noexcept;

// A rectangle on the canvas in pixels, all four numbers even.
struct PictureRectangle {
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

// The largest picture of the display size's aspect ratio that fits the canvas, centred.
[[nodiscard]] PictureRectangle FitPicture(std::uint32_t displayWidth, std::uint32_t displayHeight,
                                          std::uint32_t canvasWidth, std::uint32_t canvasHeight) noexcept;

// Sample (i, j) of a picture plane is read at slot byte x[i] + y[j], whatever the rotation and mirroring.
struct SampleAddresses {
    std::vector<std::uint32_t> x;
    std::vector<std::uint32_t> y;
};

// Source rows become picture rows, or, in a picture on its side, picture columns: its lines. Each line of luma and of
// chroma picks its samples in the same way.
struct FramePlan {
    FrameGeometry geometry;
    PictureRectangle picture;
    bool sideways = false; // turned by 90 or 270 degrees
    SampleAddresses luma; // one entry per picture column and row; whole pixels in the packed layouts
    SampleAddresses chromaU; // one entry per two columns and rows; U,V pairs in NV12, unused in the packed layouts
    SampleAddresses chromaV; // planar layout only
    RowPattern lumaPattern; // picks luma bytes: in the packed layouts, of a source row already turned into luma
    // Picks U,V pairs: of planar and packed pictures on their side, those made of a whole source row. In upright ones
    // it picks what pairs are made of afterwards: bytes of both planes, or pixels.
    RowPattern chromaPattern;
};

[[nodiscard]] inline bool IsPacked(PixelLayout layout) noexcept {
    return layout == PixelLayout::Rgba || layout == PixelLayout::Bgra;
}

// Rebuilds the plan for a geometry that fits its slot.
void BuildPlan(const FrameGeometry& geometry, FramePlan& plan);

} // namespace receiver
