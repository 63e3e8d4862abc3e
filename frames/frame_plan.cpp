#include "frames/frame_plan.h"

#include <algorithm>

namespace receiver {
namespace {

// How the samples of one plane relate to the coded picture.
struct PlaneShape {
    std::uint32_t subsampling; // as a shift: 0, or 1 for chroma with one sample for two columns and rows
    std::uint32_t bytesPerSample;
};

constexpr PlaneShape LumaShape{0, 1};
constexpr PlaneShape PairedChromaShape{1, 2};
constexpr PlaneShape PlanarChromaShape{1, 1};
constexpr PlaneShape PixelShape{0, 4};

std::size_t PlaneCount(PixelLayout layout) noexcept {
    switch (layout) {
    case PixelLayout::Nv12:
        return 2;
    case PixelLayout::Planar:
        return 3;
    case PixelLayout::Rgba:
    case PixelLayout::Bgra:
        break;
    }
    return 1;
}

PlaneShape ShapeOf(PixelLayout layout, std::size_t plane) noexcept {
    if (PlaneCount(layout) == 1) {
        return PixelShape;
    }
    if (plane == 0) {
        return LumaShape;
    }
    return layout == PixelLayout::Nv12 ? PairedChromaShape : PlanarChromaShape;
}

bool PlaneFits(const PlaneLayout& plane, std::uint64_t rowBytes, std::uint64_t rows, std::uint64_t slotSize) noexcept {
    if (plane.offset > slotSize || rowBytes > slotSize - plane.offset) {
        return false;
    }
    // Divides instead of multiplying: the stride is the page's and may be anything.
    const std::uint64_t room = slotSize - plane.offset - rowBytes;
    return rows == 1 || plane.stride <= room / (rows - 1);
}

std::uint32_t RoundDownToEven(std::uint32_t value) noexcept { return value & ~1U; }

// One axis of the picture: how many picture pixels it shows of how many source pixels, and from which end.
struct Axis {
    std::uint32_t sourceSize;
    std::uint32_t pictureSize;
    bool backwards;
};

// The address of each sample along an axis: `step` bytes for each sample of the plane, from `base` on.
void FillAddresses(const Axis& axis, std::uint32_t subsampling, std::uint32_t base, std::uint32_t step,
                   std::vector<std::uint32_t>& addresses) {
    // Picture pixel i shows source pixel i * sourceSize / pictureSize; quotient and remainder are carried along.
    const std::uint32_t advance = axis.sourceSize << subsampling;
    const std::uint32_t wholeAdvance = advance / axis.pictureSize;
    const std::uint32_t restAdvance = advance % axis.pictureSize;
    std::uint32_t position = 0;
    std::uint32_t rest = 0;
    addresses.resize(axis.pictureSize >> subsampling);
    for (std::uint32_t& address : addresses) {
        const std::uint32_t source = axis.backwards ? axis.sourceSize - 1 - position : position;
        address = base + (source >> subsampling) * step;
        position += wholeAdvance;
        rest += restAdvance;
        const bool carry = rest >= axis.pictureSize;
        position += carry ? 1 : 0;
        rest -= carry ? axis.pictureSize : 0;
    }
}

void MakeAddresses(const FramePlan& plan, const FrameGeometry& geometry, std::size_t planeIndex,
                   SampleAddresses& addresses) {
    const PlaneShape shape = ShapeOf(geometry.layout, planeIndex);
    const Axis x{plan.sideways ? geometry.codedHeight : geometry.codedWidth, plan.picture.width,
                 geometry.mirrored != (geometry.rotation == 90 || geometry.rotation == 180)};
    const Axis y{plan.sideways ? geometry.codedWidth : geometry.codedHeight, plan.picture.height,
                 geometry.rotation == 180 || geometry.rotation == 270};
    const Axis& rows = plan.sideways ? x : y;
    const Axis& columns = plan.sideways ? y : x;
    // The stride of a single row may be anything; it is multiplied by 0 then.
    FillAddresses(rows, shape.subsampling, static_cast<std::uint32_t>(geometry.planes[planeIndex].offset),
                  static_cast<std::uint32_t>(geometry.planes[planeIndex].stride),
                  plan.sideways ? addresses.x : addresses.y);
    FillAddresses(columns, shape.subsampling, 0, shape.bytesPerSample, plan.sideways ? addresses.y : addresses.x);
}

// Every `step`th of the addresses, times `factor` and divided by `divisor`.
void TakeOffsets(const std::vector<std::uint32_t>& addresses, std::size_t step, std::uint32_t factor,
                 std::uint32_t divisor, std::vector<std::uint32_t>& offsets) {
    offsets.resize(addresses.size() / step);
    for (std::size_t i = 0; i < offsets.size(); ++i) {
        offsets[i] = addresses[i * step] / divisor * factor;
    }
}

void MakePatterns(FramePlan& plan, const FrameGeometry& geometry) {
    const std::vector<std::uint32_t>& luma = plan.sideways ? plan.luma.y : plan.luma.x;
    const std::vector<std::uint32_t>& chroma = plan.sideways ? plan.chromaU.y : plan.chromaU.x;
    const std::uint32_t width = geometry.codedWidth;
    if (IsPacked(geometry.layout)) {
        const std::uint32_t sampleBytes = plan.sideways ? 2 : 4;
        TakeOffsets(luma, 1, 1, 4, plan.lumaPattern.offsets);
        TakeOffsets(luma, 2, sampleBytes, 4, plan.chromaPattern.offsets); // the first of two gives the colour
        PreparePattern(sampleBytes, width * sampleBytes, !plan.sideways, plan.chromaPattern);
    } else if (geometry.layout == PixelLayout::Planar) {
        TakeOffsets(luma, 1, 1, 1, plan.lumaPattern.offsets);
        TakeOffsets(chroma, 1, plan.sideways ? 2 : 1, 1, plan.chromaPattern.offsets);
        PreparePattern(plan.sideways ? 2 : 1, plan.sideways ? width : width / 2, !plan.sideways, plan.chromaPattern);
    } else {
        TakeOffsets(luma, 1, 1, 1, plan.lumaPattern.offsets);
        TakeOffsets(chroma, 1, 1, 1, plan.chromaPattern.offsets);
        PreparePattern(2, width, !plan.sideways, plan.chromaPattern);
    }
    PreparePattern(1, width, !plan.sideways, plan.lumaPattern);
}

} // namespace

std::optional<PixelLayout> RecognizeFormat(std::wstring_view format, std::size_t planeCount) noexcept {
    PixelLayout layout{};
    if (format == L"NV12") {
        layout = PixelLayout::Nv12;
    } else if (format == L"I420" || format == L"I420A") {
        layout = PixelLayout::Planar;
    } else if (format == L"RGBA" || format == L"RGBX") {
        layout = PixelLayout::Rgba;
    } else if (format == L"BGRA" || format == L"BGRX") {
        layout = PixelLayout::Bgra;
    } else {
        return std::nullopt;
    }
    return planeCount < PlaneCount(layout) ? std::nullopt : std::optional(layout);
}

FrameGeometry MakeGeometry(const FrameDescriptor& descriptor, PixelLayout layout, std::uint32_t canvasWidth,
                           std::uint32_t canvasHeight) noexcept {
    FrameGeometry geometry;
    geometry.layout = layout;
    geometry.codedWidth = descriptor.codedWidth;
    geometry.codedHeight = descriptor.codedHeight;
    geometry.rotation = descriptor.rotation;
    geometry.mirrored = descriptor.flipA != descriptor.flipB;
    geometry.displayWidth = descriptor.displayWidth;
    geometry.displayHeight = descriptor.displayHeight;
    geometry.canvasWidth = canvasWidth;
    geometry.canvasHeight = canvasHeight;
    std::copy_n(descriptor.planes.begin(), PlaneCount(layout), geometry.planes.begin());
    return geometry;
}

bool FitsSlot(const FrameGeometry& geometry, std::size_t slotSize) noexcept {
    for (std::size_t plane = 0; plane < PlaneCount(geometry.layout); ++plane) {
        const PlaneShape shape = ShapeOf(geometry.layout, plane);
        const std::uint64_t rowBytes =
            static_cast<std::uint64_t>(geometry.codedWidth >> shape.subsampling) * shape.bytesPerSample;
        if (!PlaneFits(geometry.planes[plane], rowBytes, geometry.codedHeight >> shape.subsampling, slotSize)) {
            return false;
        }
    }
    return true;
}

PictureRectangle FitPicture(std::uint32_t displayWidth, std::uint32_t displayHeight, std::uint32_t canvasWidth,
                            std::uint32_t canvasHeight) noexcept {
    std::uint32_t fitWidth = canvasWidth;
    std::uint32_t fitHeight = canvasHeight;
    if (canvasWidth * displayHeight > canvasHeight * displayWidth) {
        fitWidth = canvasHeight * displayWidth / displayHeight;
    } else {
        fitHeight = canvasWidth * displayHeight / displayWidth;
    }
    PictureRectangle picture;
    picture.width = std::max(RoundDownToEven(fitWidth), 2U);
    picture.height = std::max(RoundDownToEven(fitHeight), 2U);
    picture.x = RoundDownToEven((canvasWidth - picture.width) / 2);
    picture.y = RoundDownToEven((canvasHeight - picture.height) / 2);
    return picture;
}

void BuildPlan(const FrameGeometry& geometry, FramePlan& plan) {
    // A plan that memory runs out for must not pass as the plan of this geometry.
    plan.geometry = {};
    plan.picture =
        FitPicture(geometry.displayWidth, geometry.displayHeight, geometry.canvasWidth, geometry.canvasHeight);
    plan.sideways = geometry.rotation == 90 || geometry.rotation == 270;
    const std::array<SampleAddresses*, 3> planes = {&plan.luma, &plan.chromaU, &plan.chromaV};
    for (std::size_t plane = 0; plane < PlaneCount(geometry.layout); ++plane) {
        MakeAddresses(plan, geometry, plane, *planes[plane]);
    }
    MakePatterns(plan, geometry);
    plan.geometry = geometry;
}

} // namespace receiver
