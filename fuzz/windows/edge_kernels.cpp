#include "fuzz/windows/edge_kernels.h"

#include "fuzz/windows/fake_windows.h"

#include <cstring>

namespace receiver {
namespace {

void CopyRow(const std::uint8_t* src, std::uint8_t* dst, std::size_t byteCount) {
    dst[0] = src[0];
    dst[byteCount - 1] = src[byteCount - 1];
}

void ScaleRow(const RowMap& map, const std::uint8_t* src, const std::uint8_t*, std::uint8_t* dst, std::uint8_t* dst2) {
    for (const std::size_t i : {0U, map.byteCount / map.sampleBytes - 1}) {
        for (std::uint8_t* const row : {dst, dst2}) {
            if (row != nullptr) {
                std::memcpy(row + i * map.sampleBytes, src + map.sampleOffsets[i], map.sampleBytes);
            }
        }
    }
}

void MergeUVRow(const std::uint8_t* srcU, const std::uint8_t* srcV, std::uint8_t* dst, std::uint32_t pairCount) {
    for (const std::size_t i : {0U, pairCount - 1}) {
        dst[2 * i] = srcU[i];
        dst[2 * i + 1] = srcV[i];
    }
}

void RgbToYRow(const std::uint8_t* src, const std::uint8_t*, RgbOrder, std::uint8_t* dst, std::uint32_t width) {
    dst[0] = src[0];
    dst[width - 1] = src[std::size_t{width} * 4 - 1];
}

void RgbToUVRow(const std::uint8_t* src, RgbOrder, UVPixels pixels, std::uint8_t* dst, std::uint32_t width) {
    dst[0] = src[0];
    dst[(pixels == UVPixels::Each ? std::size_t{width} * 2 : width) - 1] = src[std::size_t{width} * 4 - 1];
}

template <std::size_t SampleBytes>
void TransposeRows(const RowMap& map, const std::uint8_t* const* rows, std::uint32_t rowCount, std::uint8_t* dst,
                   std::size_t dstStride) {
    for (const std::size_t y : {std::size_t{0}, map.byteCount / SampleBytes - 1}) {
        for (std::size_t x = 0; x < rowCount; ++x) {
            std::memcpy(dst + y * dstStride + x * SampleBytes, rows[x] + map.sampleOffsets[y], SampleBytes);
        }
    }
}

void Nv12ToBgr24Rows(const std::uint8_t* srcY, const std::uint8_t* srcUV, std::uint8_t* dst, std::uint32_t width) {
    dst[0] = static_cast<std::uint8_t>(srcY[0] + srcUV[0]);
    dst[std::size_t{width} * 6 - 1] = static_cast<std::uint8_t>(srcY[std::size_t{width} * 2 - 1] + srcUV[width - 1]);
}

} // namespace

const RowKernels EdgeKernels = {
    .name = "edge",
    .copyRow = CopyRow,
    .scaleRow = ScaleRow,
    .mergeUVRow = MergeUVRow,
    .rgbToYRow = RgbToYRow,
    .rgbToUVRow = RgbToUVRow,
    .transposeRows8 = TransposeRows<1>,
    .transposeRows16 = TransposeRows<2>,
    .nv12ToBgr24Rows = Nv12ToBgr24Rows,
};

// CMakeLists.txt gives the declaration in row_kernels.h, and all calls of the program, this name.
const RowKernels& FakeBestKernels() noexcept { return *FakeWindows::Current().kernels; }

} // namespace receiver
