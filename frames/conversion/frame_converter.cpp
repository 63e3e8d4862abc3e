#include "frames/conversion/frame_converter.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace receiver {
namespace {

constexpr std::size_t StripRows = 32; // source rows that are transposed together
constexpr std::size_t TileRows = 16; // With fewer rows of Y the AVX2 kernels call the scalar ones.
static_assert(StripRows / 2 >= TileRows, "the last strip, moved back to have enough rows, must reach the end");

// Bytes of a loaded row of Y or of pairs, in whole cache lines.
std::size_t RowBufferBytes(const FramePlan& plan) noexcept {
    const std::size_t rowBytes = std::max(plan.frame.codedWidth, plan.uv.map.byteCount);
    return (rowBytes + CacheLineBytes - 1) / CacheLineBytes * CacheLineBytes;
}

// A plane of the picture on the canvas.
struct Destination {
    std::uint8_t* plane;
    std::size_t stride;
};

// Loads a source row, maps it and stores it to `dst`, and to `dst2` unless that is null.
void ConvertRow(const SourceFrame& source, const PlanePlan& plan, std::uint32_t row, std::uint32_t ahead,
                std::uint8_t* buffer, std::uint8_t* dst, std::uint8_t* dst2) noexcept {
    const RowKernels& kernels = source.kernels;
    if (!plan.map.identity) {
        const std::uint8_t* const src = plan.loader.Load(source, row, ahead, buffer);
        const std::uint8_t* const srcAhead = plan.loader.InSlot() ? source.Row(plan.loader.plane, ahead) : src;
        kernels.scaleRow(plan.map, src, srcAhead, dst, dst2);
        return;
    }
    const std::uint8_t* const src = plan.loader.Load(source, row, ahead, dst); // A row that is made goes to `dst`.
    if (src != dst) {
        kernels.copyRow(src, dst, plan.map.byteCount);
    }
    if (dst2 != nullptr) {
        kernels.copyRow(dst, dst2, plan.map.byteCount);
    }
}

// Destination rows `first` to `end` - 1.
void ConvertRows(const SourceFrame& source, const PlanePlan& plan, std::size_t first, std::size_t end,
                 std::uint8_t* buffer, const Destination& to) noexcept {
    const std::vector<std::uint32_t>& rows = plan.rows;
    if (plan.isCopy) { // of all rows: a format that is stored in planes converts each plane in one call
        source.kernels.copyRow(source.Row(plan.loader.plane, rows[0]), to.plane, to.stride * rows.size());
        return;
    }
    for (std::size_t i = first; i < end; ++i) {
        std::uint8_t* const dst = to.plane + i * to.stride;
        if (i > 0 && rows[i] == rows[i - 1]) {
            source.kernels.copyRow(dst - to.stride, dst, plan.map.byteCount);
            continue;
        }
        const bool repeats = i + 1 < end && rows[i + 1] == rows[i];
        const std::uint32_t ahead = rows[std::min(i + plan.rowsAhead, rows.size() - 1)];
        ConvertRow(source, plan, rows[i], ahead, buffer, dst, repeats ? dst + to.stride : nullptr);
        i += repeats ? 1 : 0;
    }
}

void ConvertUpright(const SourceFrame& source, const FramePlan& plan, std::uint8_t* buffer, const Destination& y,
                    const Destination& uv) noexcept {
    const std::size_t rowCount = plan.y.rows.size();
    // A format with one plane has Y and U,V in the same rows: both are made while the rows are in the cache.
    const std::size_t step = plan.format->planeCount == 1 ? 2 : rowCount;
    for (std::size_t first = 0; first < rowCount; first += step) {
        ConvertRows(source, plan.y, first, first + step, buffer, y);
        ConvertRows(source, plan.uv, first / 2, (first + step) / 2, buffer, uv);
    }
}

// Transposes up to `stripRows` source rows, from `first` on, into columns. A last strip of fewer than TileRows rows
// starts earlier and converts some rows twice.
void ConvertStrip(const SourceFrame& source, const PlanePlan& plan, std::size_t first, std::size_t stripRows,
                  std::uint8_t* buffer, std::size_t bufferStride, const Destination& to) noexcept {
    const std::vector<std::uint32_t>& rows = plan.rows;
    first = std::min(first, rows.size() - std::min(rows.size(), TileRows));
    const std::size_t count = std::min(stripRows, rows.size() - first);
    std::array<const std::uint8_t*, StripRows> loaded{};
    for (std::size_t i = 0; i < count; ++i) {
        loaded[i] = i > 0 && rows[first + i] == rows[first + i - 1]
                        ? loaded[i - 1]
                        : plan.loader.Load(source, rows[first + i], rows[first + i], buffer + i * bufferStride);
    }
    const std::size_t sampleBytes = plan.map.sampleBytes;
    const auto transpose = sampleBytes == 1 ? source.kernels.transposeRows8 : source.kernels.transposeRows16;
    transpose(plan.map, loaded.data(), static_cast<std::uint32_t>(count), to.plane + first * sampleBytes, to.stride);
}

void ConvertTransposed(const SourceFrame& source, const FramePlan& plan, std::uint8_t* buffer, const Destination& y,
                       const Destination& uv) noexcept {
    const std::size_t bufferStride = RowBufferBytes(plan);
    for (std::size_t first = 0; first < plan.y.rows.size(); first += StripRows) {
        ConvertStrip(source, plan.y, first, StripRows, buffer, bufferStride, y);
        ConvertStrip(source, plan.uv, first / 2, StripRows / 2, buffer, bufferStride, uv);
    }
}

} // namespace

HRESULT FrameConverter::Convert(std::span<const std::uint8_t> slot, const FrameDescriptor& frame,
                                std::uint32_t canvasWidth, std::uint32_t canvasHeight, FrameCanvas& canvas) {
    const PixelFormat* const format = FindPixelFormat(frame.format, frame.planeCount);
    if (format == nullptr) {
        canvas.Prepare(canvasWidth, canvasHeight, {});
        return MF_E_INVALIDMEDIATYPE;
    }
    if (!FitsSlot(frame, *format, slot.size())) {
        return E_INVALIDARG;
    }
    if (!plan || !plan->IsFor(frame, canvasWidth, canvasHeight)) {
        plan = FramePlan(frame, *format, canvasWidth, canvasHeight);
    }
    const std::size_t rowBytes = RowBufferBytes(*plan) * (plan->transposed ? StripRows : 1);
    const std::size_t bufferBytes = rowBytes + plan->uvPixelMap.byteCount;
    if (rowBuffer.size() < bufferBytes) {
        rowBuffer.resize(bufferBytes);
    }
    canvas.Prepare(canvasWidth, canvasHeight, plan->picture);

    const PictureRectangle& picture = plan->picture;
    const std::size_t stride = canvasWidth;
    const Destination y{canvas.Y() + picture.y * stride + picture.x, stride};
    const Destination uv{canvas.UV() + picture.y / 2 * stride + picture.x, stride};
    const SourceFrame source{.slot = slot.data(),
                             .frame = plan->frame,
                             .uvPixels = plan->uvPixels,
                             .uvPixelMap = plan->uvPixelMap,
                             .pickedPixels = rowBuffer.data() + rowBytes,
                             .kernels = *kernels};
    (plan->transposed ? ConvertTransposed : ConvertUpright)(source, *plan, rowBuffer.data(), y, uv);
    return S_OK;
}

} // namespace receiver
