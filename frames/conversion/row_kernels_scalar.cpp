// The row functions in plain C++: the reference for the AVX2 table, which calls them for short rows, and what runs
// where AVX2 is missing.
#include "frames/conversion/row_kernels.h"

#include <algorithm>
#include <cstring>

namespace receiver {
namespace {

void CopyRow(const std::uint8_t* src, std::uint8_t* dst, std::size_t byteCount) { std::memcpy(dst, src, byteCount); }

template <std::size_t SampleBytes>
void ScaleSamples(const RowMap& map, const std::uint8_t* src, std::uint8_t* dst) {
    for (std::size_t i = 0; i < map.byteCount / SampleBytes; ++i) {
        std::memcpy(dst + i * SampleBytes, src + map.sampleOffsets[i], SampleBytes);
    }
}

void ScaleRow(const RowMap& map, const std::uint8_t* src, const std::uint8_t*, std::uint8_t* dst, std::uint8_t* dst2) {
    const auto scale = map.sampleBytes == 1   ? ScaleSamples<1>
                       : map.sampleBytes == 2 ? ScaleSamples<2>
                                              : ScaleSamples<4>;
    scale(map, src, dst);
    if (dst2 != nullptr) {
        std::memcpy(dst2, dst, map.byteCount);
    }
}

void MergeUVRow(const std::uint8_t* srcU, const std::uint8_t* srcV, std::uint8_t* dst, std::uint32_t pairCount) {
    for (std::size_t i = 0; i < pairCount; ++i) {
        dst[2 * i] = srcU[i];
        dst[2 * i + 1] = srcV[i];
    }
}

// 8-bit fixed point. No clamp: Y stays in 16..235, U and V in 16..240.
template <std::size_t RedByte>
void RgbToY(const std::uint8_t* src, std::uint8_t* dst, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i, src += 4) {
        const int sum = 66 * src[RedByte] + 129 * src[1] + 25 * src[2 - RedByte];
        dst[i] = static_cast<std::uint8_t>(((sum + 128) >> 8) + 16);
    }
}

template <std::size_t RedByte>
void RgbToUV(const std::uint8_t* src, UVPixels pixels, std::uint8_t* dst, std::size_t width) {
    const std::size_t step = pixels == UVPixels::Each ? 1 : 2;
    const std::size_t first = pixels == UVPixels::Odd ? 1 : 0;
    for (std::size_t i = 0; i < width / step; ++i) {
        const std::uint8_t* const pixel = src + 4 * (first + step * i);
        const int r = pixel[RedByte];
        const int g = pixel[1];
        const int b = pixel[2 - RedByte];
        dst[2 * i] = static_cast<std::uint8_t>(((-38 * r - 74 * g + 112 * b + 128) >> 8) + 128);
        dst[2 * i + 1] = static_cast<std::uint8_t>(((112 * r - 94 * g - 18 * b + 128) >> 8) + 128);
    }
}

void RgbToYRow(const std::uint8_t* src, const std::uint8_t*, RgbOrder order, std::uint8_t* dst, std::uint32_t width) {
    (order == RgbOrder::RedFirst ? RgbToY<0> : RgbToY<2>)(src, dst, width);
}

void RgbToUVRow(const std::uint8_t* src, RgbOrder order, UVPixels pixels, std::uint8_t* dst, std::uint32_t width) {
    (order == RgbOrder::RedFirst ? RgbToUV<0> : RgbToUV<2>)(src, pixels, dst, width);
}

template <std::size_t SampleBytes>
void TransposeRows(const RowMap& map, const std::uint8_t* const* rows, std::uint32_t rowCount, std::uint8_t* dst,
                   std::size_t dstStride) {
    for (std::size_t y = 0; y < map.byteCount / SampleBytes; ++y, dst += dstStride) {
        for (std::size_t x = 0; x < rowCount; ++x) {
            std::memcpy(dst + x * SampleBytes, rows[x] + map.sampleOffsets[y], SampleBytes);
        }
    }
}

std::uint8_t ClampToByte(int value) { return static_cast<std::uint8_t>(std::clamp(value, 0, 255)); }

// BT.601 limited range in 8-bit fixed point.
void Nv12ToBgr24Rows(const std::uint8_t* srcY, const std::uint8_t* srcUV, std::uint8_t* dst, std::uint32_t width) {
    for (std::size_t x = 0; x < width; x += 2) {
        const int u = srcUV[x] - 128;
        const int v = srcUV[x + 1] - 128;
        const int blue = 516 * u + 128;
        const int green = -100 * u - 208 * v + 128;
        const int red = 409 * v + 128;
        for (const std::size_t at : {x, x + 1, x + width, x + width + 1}) {
            const int y = (srcY[at] - 16) * 298;
            dst[3 * at] = ClampToByte((y + blue) >> 8);
            dst[3 * at + 1] = ClampToByte((y + green) >> 8);
            dst[3 * at + 2] = ClampToByte((y + red) >> 8);
        }
    }
}

} // namespace

const RowKernels ScalarKernels = {
    .name = "scalar",
    .copyRow = CopyRow,
    .scaleRow = ScaleRow,
    .mergeUVRow = MergeUVRow,
    .rgbToYRow = RgbToYRow,
    .rgbToUVRow = RgbToUVRow,
    .transposeRows8 = TransposeRows<1>,
    .transposeRows16 = TransposeRows<2>,
    .nv12ToBgr24Rows = Nv12ToBgr24Rows,
};

} // namespace receiver
