#include "frames/frame_plan.h"

#include <algorithm>

namespace receiver {
namespace {

// How the samples of one plane relate to the coded picture.
struct PlaneShape {
    std::uint32_t columnsPerSample; // and rows: 1, or 2 for subsampled chroma
    std::uint32_t bytesPerSample;
};

constexpr PlaneShape LumaShape{1, 1};
constexpr PlaneShape PairedChromaShape{2, 2};
constexpr PlaneShape PlanarChromaShape{2, 1};
constexpr PlaneShape PixelShape{1, 4};

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

// Source position of each output sample along one canvas axis, in pixels of the rotated source.
// `step` is the number of picture pixels per sample.
class AxisSampler {
public:
    AxisSampler(std::uint32_t sourceSize, std::uint32_t pictureSize, std::uint32_t step, bool mirrored) noexcept
        : sourceSize_(sourceSize), pictureSize_(pictureSize), step_(step), mirrored_(mirrored) {}

    [[nodiscard]] std::uint32_t SampleCount() const noexcept { return pictureSize_ / step_; }
    [[nodiscard]] std::uint32_t operator()(std::uint32_t sample) const noexcept {
        const std::uint64_t position = static_cast<std::uint64_t>(sample) * step_ * sourceSize_ / pictureSize_;
        const auto source = static_cast<std::uint32_t>(position);
        return mirrored_ ? sourceSize_ - 1 - source : source;
    }

private:
    std::uint32_t sourceSize_;
    std::uint32_t pictureSize_;
    std::uint32_t step_;
    bool mirrored_;
};

SampleAddresses MakeAddresses(const FrameGeometry& geometry, const PictureRectangle& picture, std::size_t planeIndex) {
    const PlaneShape shape = ShapeOf(geometry.layout, planeIndex);
    const PlaneLayout& plane = geometry.planes[planeIndex];
    const bool sideways = geometry.rotation == 90 || geometry.rotation == 270;
    const std::uint32_t lastColumn = geometry.codedWidth - 1;
    const std::uint32_t lastRow = geometry.codedHeight - 1;
    const AxisSampler sourceX(sideways ? geometry.codedHeight : geometry.codedWidth, picture.width,
                              shape.columnsPerSample, geometry.mirrored);
    const AxisSampler sourceY(sideways ? geometry.codedWidth : geometry.codedHeight, picture.height,
                              shape.columnsPerSample, false);

    const auto columnBytes = [&](std::uint32_t column) {
        return column / shape.columnsPerSample * shape.bytesPerSample;
    };
    const auto rowBytes = [&](std::uint32_t row) {
        return static_cast<std::uint32_t>(plane.offset + row / shape.columnsPerSample * plane.stride);
    };

    SampleAddresses addresses;
    addresses.x.resize(sourceX.SampleCount());
    addresses.y.resize(sourceY.SampleCount());
    for (std::uint32_t i = 0; i < addresses.x.size(); ++i) {
        const std::uint32_t sx = sourceX(i);
        switch (geometry.rotation) {
        case 90:
            addresses.x[i] = rowBytes(lastRow - sx);
            break;
        case 180:
            addresses.x[i] = columnBytes(lastColumn - sx);
            break;
        case 270:
            addresses.x[i] = rowBytes(sx);
            break;
        default:
            addresses.x[i] = columnBytes(sx);
            break;
        }
    }
    for (std::uint32_t j = 0; j < addresses.y.size(); ++j) {
        const std::uint32_t sy = sourceY(j);
        switch (geometry.rotation) {
        case 90:
            addresses.y[j] = columnBytes(sy);
            break;
        case 180:
            addresses.y[j] = rowBytes(lastRow - sy);
            break;
        case 270:
            addresses.y[j] = columnBytes(lastColumn - sy);
            break;
        default:
            addresses.y[j] = rowBytes(sy);
            break;
        }
    }
    return addresses;
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
            static_cast<std::uint64_t>(geometry.codedWidth / shape.columnsPerSample) * shape.bytesPerSample;
        if (!PlaneFits(geometry.planes[plane], rowBytes, geometry.codedHeight / shape.columnsPerSample, slotSize)) {
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
    const std::size_t planeCount = PlaneCount(geometry.layout);
    plan.luma = MakeAddresses(geometry, plan.picture, 0);
    plan.chromaU = planeCount > 1 ? MakeAddresses(geometry, plan.picture, 1) : SampleAddresses{};
    plan.chromaV = planeCount > 2 ? MakeAddresses(geometry, plan.picture, 2) : SampleAddresses{};
    plan.geometry = geometry;
}

} // namespace receiver
