// The inner loops of the conversion and of the snapshot, each for one or a few rows, in two tables that give the same
// bytes: plain C++, and AVX2. One table is chosen when the program starts. Pure: no Windows calls.
#pragma once

#include "frames/conversion/row_map.h"

#include <cstddef>
#include <cstdint>

namespace receiver {

enum class RgbOrder { RedFirst, BlueFirst }; // of the bytes of a 4-byte pixel: R, G, B or B, G, R, and one unused

// The pixels of a row that become U,V pairs.
enum class UVPixels { Each, Even, Odd };

// No function reads or writes a byte outside the rows that it is given. Any alignment is allowed, and any length unless
// a comment says that it is even. A source must not overlap its destination.
struct RowKernels {
    const char* name;

    void (*copyRow)(const std::uint8_t* src, std::uint8_t* dst, std::size_t byteCount);

    // Fills dst, and dst2 with the same unless it is null. `srcAhead` is a row that will be read later: it is
    // prefetched.
    void (*scaleRow)(const RowMap& map, const std::uint8_t* src, const std::uint8_t* srcAhead, std::uint8_t* dst,
                     std::uint8_t* dst2);

    // U,V pairs from a row of U and a row of V.
    void (*mergeUVRow)(const std::uint8_t* srcU, const std::uint8_t* srcV, std::uint8_t* dst, std::uint32_t pairCount);

    // BT.601, limited range, from a row of `width` 4-byte pixels. rgbToUVRow writes `width` pairs for UVPixels::Each,
    // otherwise width / 2; then `width` is even.
    void (*rgbToYRow)(const std::uint8_t* src, const std::uint8_t* srcAhead, RgbOrder order, std::uint8_t* dst,
                      std::uint32_t width);
    void (*rgbToUVRow)(const std::uint8_t* src, RgbOrder order, UVPixels pixels, std::uint8_t* dst,
                       std::uint32_t width);

    // Transposes: sample x of destination row y is the sample of rows[x] at map.sampleOffsets[y]. Samples have one byte
    // (8) or two (16).
    void (*transposeRows8)(const RowMap& map, const std::uint8_t* const* rows, std::uint32_t rowCount,
                           std::uint8_t* dst, std::size_t dstStride);
    void (*transposeRows16)(const RowMap& map, const std::uint8_t* const* rows, std::uint32_t rowCount,
                            std::uint8_t* dst, std::size_t dstStride);

    // Two rows of Y and one of U,V pairs to two rows of 3-byte pixels, blue first, which follow each other. `width` is
    // even.
    void (*nv12ToBgr24Rows)(const std::uint8_t* srcY, const std::uint8_t* srcUV, std::uint8_t* dst,
                            std::uint32_t width);
};

extern const RowKernels ScalarKernels;
extern const RowKernels Avx2Kernels; // only where Avx2Usable() says so

// True when the processor has AVX2 and the operating system saves its registers.
[[nodiscard]] bool Avx2Usable() noexcept;

// The fastest table that runs here.
[[nodiscard]] const RowKernels& BestKernels() noexcept;

} // namespace receiver
