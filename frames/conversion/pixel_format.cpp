#include "frames/conversion/pixel_format.h"

#include <algorithm>

namespace receiver {
namespace {

constexpr PlaneShape Samples{.pixelsPerSample = 1, .bytesPerSample = 1};
constexpr PlaneShape SubsampledPairs{.pixelsPerSample = 2, .bytesPerSample = 2};
constexpr PlaneShape SubsampledSamples{.pixelsPerSample = 2, .bytesPerSample = 1};
constexpr PlaneShape Pixels{.pixelsPerSample = 1, .bytesPerSample = 4};

void MergeUV(const SourceFrame& source, std::uint32_t y, std::uint32_t, std::uint8_t* buffer) {
    source.kernels.mergeUVRow(source.Row(1, y), source.Row(2, y), buffer, source.frame.codedWidth / 2);
}

template <RgbOrder Order>
void RgbToY(const SourceFrame& source, std::uint32_t y, std::uint32_t ahead, std::uint8_t* buffer) {
    source.kernels.rgbToYRow(source.Row(0, y), source.Row(0, ahead), Order, buffer, source.frame.codedWidth);
}

template <RgbOrder Order>
void RgbToUV(const SourceFrame& source, std::uint32_t y, std::uint32_t, std::uint8_t* buffer) {
    const std::uint8_t* pixels = source.Row(0, y);
    std::uint32_t count = source.frame.codedWidth;
    if (source.uvPixels == UVPixels::Each) {
        source.kernels.scaleRow(source.uvPixelMap, pixels, pixels, source.pickedPixels, nullptr);
        pixels = source.pickedPixels;
        count = source.uvPixelMap.byteCount / Pixels.bytesPerSample;
    }
    source.kernels.rgbToUVRow(pixels, Order, source.uvPixels, buffer, count);
}

// Alpha and padding are never read.
constexpr PixelFormat Formats[] = {
    {L"NV12", 2, {Samples, SubsampledPairs}, {.plane = 0}, {.plane = 1}, 2},
    {L"I420", 3, {Samples, SubsampledSamples, SubsampledSamples}, {.plane = 0}, {.make = MergeUV}, 2},
    {L"I420A", 3, {Samples, SubsampledSamples, SubsampledSamples}, {.plane = 0}, {.make = MergeUV}, 2},
    {L"RGBA", 1, {Pixels}, {.make = RgbToY<RgbOrder::RedFirst>}, {.make = RgbToUV<RgbOrder::RedFirst>}, 1},
    {L"RGBX", 1, {Pixels}, {.make = RgbToY<RgbOrder::RedFirst>}, {.make = RgbToUV<RgbOrder::RedFirst>}, 1},
    {L"BGRA", 1, {Pixels}, {.make = RgbToY<RgbOrder::BlueFirst>}, {.make = RgbToUV<RgbOrder::BlueFirst>}, 1},
    {L"BGRX", 1, {Pixels}, {.make = RgbToY<RgbOrder::BlueFirst>}, {.make = RgbToUV<RgbOrder::BlueFirst>}, 1},
};

bool PlaneFits(const PlaneLayout& plane, std::uint64_t rowBytes, std::uint64_t rowCount,
               std::uint64_t slotSize) noexcept {
    if (plane.offset > slotSize || rowBytes > slotSize - plane.offset) {
        return false;
    }
    // Divides instead of multiplying: the stride is the page's and may be anything.
    const std::uint64_t room = slotSize - plane.offset - rowBytes;
    return rowCount == 1 || plane.stride <= room / (rowCount - 1);
}

} // namespace

const PixelFormat* FindPixelFormat(std::wstring_view name, std::size_t planeCount) noexcept {
    const auto* const format = std::ranges::find(Formats, name, &PixelFormat::name);
    return format != std::end(Formats) && planeCount >= format->planeCount ? format : nullptr;
}

bool FitsSlot(const FrameDescriptor& frame, const PixelFormat& format, std::size_t slotSize) noexcept {
    for (std::size_t i = 0; i < format.planeCount; ++i) {
        const PlaneShape& shape = format.planes[i];
        const std::uint64_t rowBytes = std::uint64_t{frame.codedWidth} / shape.pixelsPerSample * shape.bytesPerSample;
        if (!PlaneFits(frame.planes[i], rowBytes, frame.codedHeight / shape.pixelsPerSample, slotSize)) {
            return false;
        }
    }
    return true;
}

} // namespace receiver
