// The row functions in AVX2. This file alone is compiled with AVX2 enabled, so it must not use inline functions of
// other headers: the linker might choose its copy of one for the whole program.
#include "frames/conversion/row_kernels.h"

#include <immintrin.h>
#ifdef _MSC_VER
#include <intrin.h>
#endif

#include <cstring>

namespace receiver {
namespace {

// In comments | separates the two 128-bit lanes of a vector.
constexpr std::uint32_t Block = 32; // bytes of a vector, and samples that most kernels convert at a time

__m128i Load16(const std::uint8_t* src) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(src)); }
__m256i Load32(const std::uint8_t* src) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src)); }
void Store16(std::uint8_t* dst, __m128i bytes) { _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), bytes); }
void Store32(std::uint8_t* dst, __m256i bytes) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), bytes); }

void Prefetch(const std::uint8_t* src) { _mm_prefetch(reinterpret_cast<const char*>(src), _MM_HINT_T0); }

// Calls body(start) for each block of a row of at least one block: the last one ends with the row and may overlap the
// block before.
template <std::uint32_t BlockSize = Block, typename Body>
void ForBlocks(std::uint32_t length, const Body& body) {
    std::uint32_t start = 0;
    for (; start + BlockSize <= length; start += BlockSize) {
        body(start);
    }
    if (start < length) {
        body(length - BlockSize);
    }
}

void CopyRow(const std::uint8_t* src, std::uint8_t* dst, std::size_t byteCount) {
    constexpr std::size_t StringMoveBytes = 65536; // From here on it takes a sixth less time than memcpy (family 26).
    if (byteCount < StringMoveBytes) {
        std::memcpy(dst, src, byteCount);
        return;
    }
#ifdef _MSC_VER
    __movsb(dst, src, byteCount);
#else
    __asm__ volatile("rep movsb" : "+D"(dst), "+S"(src), "+c"(byteCount) : : "memory");
#endif
}

template <std::size_t WindowCount>
struct Controls {
    Controls(const std::uint8_t* ofAllGroups, std::size_t group) {
        for (std::size_t window = 0; window < WindowCount; ++window) {
            ofWindow[window] = Load32(ofAllGroups + (group * WindowCount + window) * Block);
        }
    }
    __m256i ofWindow[WindowCount];
};

// Bytes 0..15 of a group from the windows at `src0` | bytes 16..31 from those at `src1`.
template <std::size_t WindowCount>
__m256i ShuffleGroup(const std::uint8_t* src0, const std::uint8_t* src1, const Controls<WindowCount>& controls) {
    __m256i group = _mm256_setzero_si256();
    for (std::size_t window = 0; window < WindowCount; ++window) {
        const __m256i bytes =
            _mm256_inserti128_si256(_mm256_castsi128_si256(Load16(src0 + 16 * window)), Load16(src1 + 16 * window), 1);
        group = _mm256_or_si256(group, _mm256_shuffle_epi8(bytes, controls.ofWindow[window]));
    }
    return group;
}

template <std::size_t WindowCount, bool TwoRows>
void ScaleGroups(const RowMap& map, const std::uint8_t* src, const std::uint8_t* srcAhead, std::uint8_t* dst,
                 std::uint8_t* dst2) {
    // Local copies: rows may alias the map, so the compiler would reload its fields after each store.
    const std::uint32_t* const laneOffsets = map.laneOffsets;
    const std::uint8_t* const controls = map.controls;
    const std::size_t byteCount = map.byteCount;
    const std::size_t period = map.period;
    const std::size_t regularGroups = map.regularGroups;
    const std::ptrdiff_t step = map.periodStep;
    const std::ptrdiff_t toAhead = srcAhead - src;
    const std::ptrdiff_t toRow2 = TwoRows ? dst2 - dst : 0;
    const auto scaleGroup = [=](const std::uint8_t* src0, const std::uint8_t* src1,
                                const Controls<WindowCount>& groupControls, std::uint8_t* to) {
        const __m256i bytes = ShuffleGroup<WindowCount>(src0, src1, groupControls);
        Store32(to, bytes);
        if constexpr (TwoRows) {
            Store32(to + toRow2, bytes);
        }
        Prefetch(src0 + toAhead);
    };
    const std::uint8_t* const regularEnd = dst + regularGroups * Block;
    for (std::size_t phase = 0; phase < period; ++phase) {
        const Controls<WindowCount> phaseControls(controls, phase); // stay in registers
        const std::uint8_t* src0 = src + laneOffsets[2 * phase];
        const std::uint8_t* src1 = src + laneOffsets[2 * phase + 1];
        for (std::uint8_t* to = dst + phase * Block; to < regularEnd; to += period * Block) {
            scaleGroup(src0, src1, phaseControls, to);
            src0 += step; // The last step may leave the row; nothing is read there.
            src1 += step;
        }
    }
    const auto scaleIrregular = [=](std::size_t group, std::uint8_t* to) {
        scaleGroup(src + laneOffsets[2 * group], src + laneOffsets[2 * group + 1],
                   Controls<WindowCount>(controls, group), to);
    };
    const std::size_t fullGroups = byteCount / Block;
    for (std::size_t group = regularGroups; group < fullGroups; ++group) {
        scaleIrregular(group, dst + group * Block);
    }
    if (byteCount % Block != 0) {
        scaleIrregular(fullGroups, dst + byteCount - Block);
    }
}

template <bool TwoRows>
void ScaleRows(const RowMap& map, const std::uint8_t* src, const std::uint8_t* srcAhead, std::uint8_t* dst,
               std::uint8_t* dst2) {
    const auto scale = map.windowCount == 1   ? ScaleGroups<1, TwoRows>
                       : map.windowCount == 2 ? ScaleGroups<2, TwoRows>
                                              : ScaleGroups<4, TwoRows>;
    scale(map, src, srcAhead, dst, dst2);
}

void ScaleRow(const RowMap& map, const std::uint8_t* src, const std::uint8_t* srcAhead, std::uint8_t* dst,
              std::uint8_t* dst2) {
    if (map.windowCount == 0) {
        return ScalarKernels.scaleRow(map, src, srcAhead, dst, dst2);
    }
    (dst2 != nullptr ? ScaleRows<true> : ScaleRows<false>)(map, src, srcAhead, dst, dst2);
}

void MergeUVRow(const std::uint8_t* srcU, const std::uint8_t* srcV, std::uint8_t* dst, std::uint32_t pairCount) {
    if (pairCount < Block) {
        return ScalarKernels.mergeUVRow(srcU, srcV, dst, pairCount);
    }
    ForBlocks(pairCount, [=](std::size_t start) {
        const __m256i u = Load32(srcU + start);
        const __m256i v = Load32(srcV + start);
        const __m256i low = _mm256_unpacklo_epi8(u, v); // pairs 0..7 | 16..23
        const __m256i high = _mm256_unpackhi_epi8(u, v); // pairs 8..15 | 24..31
        Store32(dst + 2 * start, _mm256_permute2x128_si256(low, high, 0x20)); // pairs 0..15
        Store32(dst + 2 * start + 32, _mm256_permute2x128_si256(low, high, 0x31)); // pairs 16..31
    });
}

// Four signed bytes, repeated. The fourth is never negative.
__m256i RepeatBytes(int first, int second, int third, int fourth) {
    return _mm256_set1_epi32((first & 0xFF) | (second & 0xFF) << 8 | (third & 0xFF) << 16 | (fourth & 0x7F) << 24);
}

// 8 pixels. Those with blue first are loaded one byte earlier, so that green and red form one pair of bytes. The first
// pixel of a row has no byte before it.
template <RgbOrder Order>
__m256i LoadPairing(const std::uint8_t* src, [[maybe_unused]] bool rowBegins) {
    if constexpr (Order == RgbOrder::RedFirst) {
        return Load32(src);
    } else {
        return rowBegins ? _mm256_slli_epi32(Load32(src), 8) : Load32(src - 1);
    }
}

template <RgbOrder Order>
void RgbToY(const std::uint8_t* src, const std::uint8_t* srcAhead, std::uint8_t* dst, std::uint32_t width) {
    constexpr bool RedFirst = Order == RgbOrder::RedFirst;
    // 129 is too large for a signed byte, but 66 and 129 are 3 times 22 and 43.
    const __m256i weights = RedFirst ? RepeatBytes(22, 43, 25, 0) : RepeatBytes(0, 25, 43, 22);
    const __m256i factors = _mm256_set1_epi32(RedFirst ? 3 | 1 << 16 : 1 | 3 << 16); // of the two pairs of bytes
    const __m256i offset = _mm256_set1_epi16(128 + 16 * 256); // 128 rounds; 16 remains after the shift.
    const __m256i byPixel = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    ForBlocks(width, [=](std::size_t start) {
        const std::uint8_t* const block = src + 4 * start;
        Prefetch(srcAhead + 4 * start);
        Prefetch(srcAhead + 4 * start + 64);
        const auto sums = [=](std::size_t pixel) {
            const __m256i pixels = LoadPairing<Order>(block + 4 * pixel, start + pixel == 0);
            return _mm256_madd_epi16(_mm256_maddubs_epi16(pixels, weights), factors);
        };
        const auto toY = [=](__m256i sums0, __m256i sums1) {
            return _mm256_srli_epi16(_mm256_add_epi16(_mm256_packus_epi32(sums0, sums1), offset), 8);
        };
        const __m256i low = toY(sums(0), sums(8)); // pixels 0..3, 8..11 | 4..7, 12..15
        const __m256i high = toY(sums(16), sums(24));
        // Groups of four pixels: 0, 2, 4, 6 | 1, 3, 5, 7.
        Store32(dst + start, _mm256_permutevar8x32_epi32(_mm256_packus_epi16(low, high), byPixel));
    });
}

void RgbToYRow(const std::uint8_t* src, const std::uint8_t* srcAhead, RgbOrder order, std::uint8_t* dst,
               std::uint32_t width) {
    if (width < Block) {
        return ScalarKernels.rgbToYRow(src, srcAhead, order, dst, width);
    }
    (order == RgbOrder::RedFirst ? RgbToY<RgbOrder::RedFirst> : RgbToY<RgbOrder::BlueFirst>)(src, srcAhead, dst, width);
}

// 8 pixels: 0..3 | 4..7, or of the even or odd ones 0, 1, 4, 5 | 2, 3, 6, 7.
template <UVPixels Pixels>
__m256i LoadPixels(const std::uint8_t* src) {
    if constexpr (Pixels == UVPixels::Each) {
        return Load32(src);
    } else {
        constexpr int Selected = Pixels == UVPixels::Even ? 0x88 : 0xDD; // two from each source, per lane
        return _mm256_castps_si256(
            _mm256_shuffle_ps(_mm256_castsi256_ps(Load32(src)), _mm256_castsi256_ps(Load32(src + 32)), Selected));
    }
}

template <UVPixels Pixels>
void RgbToUV(const std::uint8_t* src, RgbOrder order, std::uint8_t* dst, std::uint32_t pairCount) {
    constexpr std::uint32_t PairBlock = 16;
    constexpr std::size_t PairPixels = Pixels == UVPixels::Each ? 1 : 2;
    const bool redFirst = order == RgbOrder::RedFirst;
    const __m256i weightsU = redFirst ? RepeatBytes(-38, -74, 112, 0) : RepeatBytes(112, -74, -38, 0);
    const __m256i weightsV = redFirst ? RepeatBytes(112, -94, -18, 0) : RepeatBytes(-18, -94, 112, 0);
    const __m256i offset = _mm256_set1_epi16(128 * 256 + 128 - 65536); // rounding, and 128 after the shift
    const __m256i highBytes = _mm256_set1_epi16(-256);
    // Pairs of pixels 0..3, 8..11 | 4..7, 12..15; of the even or odd ones 0, 1, 4, 5, 8, 9, 12, 13 | 2, 3 ...
    const __m256i byPixel = Pixels == UVPixels::Each ? _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7)
                                                     : _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    ForBlocks<PairBlock>(pairCount, [=](std::size_t start) {
        const std::uint8_t* const block = src + 4 * PairPixels * start;
        const __m256i pixels0 = LoadPixels<Pixels>(block);
        const __m256i pixels1 = LoadPixels<Pixels>(block + 4 * PairPixels * 8);
        const auto sums = [=](__m256i weights) {
            const __m256i ones = _mm256_set1_epi16(1);
            const __m256i sums0 = _mm256_madd_epi16(_mm256_maddubs_epi16(pixels0, weights), ones);
            const __m256i sums1 = _mm256_madd_epi16(_mm256_maddubs_epi16(pixels1, weights), ones);
            return _mm256_add_epi16(_mm256_packs_epi32(sums0, sums1), offset);
        };
        const __m256i pairs = _mm256_blendv_epi8(_mm256_srli_epi16(sums(weightsU), 8), sums(weightsV), highBytes);
        Store32(dst + 2 * start, _mm256_permutevar8x32_epi32(pairs, byPixel));
    });
}

void RgbToUVRow(const std::uint8_t* src, RgbOrder order, UVPixels pixels, std::uint8_t* dst, std::uint32_t width) {
    const std::uint32_t pairCount = pixels == UVPixels::Each ? width : width / 2;
    if (pairCount < 16) {
        return ScalarKernels.rgbToUVRow(src, order, pixels, dst, width);
    }
    const auto rgbToUV = pixels == UVPixels::Each   ? RgbToUV<UVPixels::Each>
                         : pixels == UVPixels::Even ? RgbToUV<UVPixels::Even>
                                                    : RgbToUV<UVPixels::Odd>;
    rgbToUV(src, order, dst, pairCount);
}

// Interleaves the first with the second half of the rows, sample by sample, in each lane. After log2(Count) rounds
// sample i of row v has become sample v of row i.
template <std::size_t SampleBytes, std::size_t Count>
void Transpose(__m256i (&rows)[Count]) {
    for (std::size_t round = 1; round < Count; round *= 2) {
        __m256i mixed[Count];
        for (std::size_t i = 0; i < Count / 2; ++i) {
            const __m256i a = rows[i];
            const __m256i b = rows[i + Count / 2];
            // a0 b0 a1 b1 ... of the lane's lower half, then of its upper half
            mixed[2 * i] = SampleBytes == 1 ? _mm256_unpacklo_epi8(a, b) : _mm256_unpacklo_epi16(a, b);
            mixed[2 * i + 1] = SampleBytes == 1 ? _mm256_unpackhi_epi8(a, b) : _mm256_unpackhi_epi16(a, b);
        }
        for (std::size_t i = 0; i < Count; ++i) {
            rows[i] = mixed[i];
        }
    }
}

// Transposes tiles of Side rows by 32 bytes: each lane holds a square of Side samples.
template <std::size_t SampleBytes, std::size_t WindowCount>
void TransposeGroups(const RowMap& map, const std::uint8_t* const* rows, std::uint32_t rowCount, std::uint8_t* dst,
                     std::size_t dstStride) {
    constexpr std::uint32_t Side = 16 / SampleBytes;
    const std::size_t lastGroup = (map.byteCount + Block - 1) / Block - 1;
    std::size_t group = 0;
    ForBlocks(map.byteCount, [&](std::size_t start) {
        const std::uint32_t* const lanes = map.laneOffsets + 2 * group;
        const std::uint32_t ahead = map.laneOffsets[2 * (group + 2 < lastGroup ? group + 2 : lastGroup)];
        const Controls<WindowCount> controls(map.controls, group);
        ForBlocks<Side>(rowCount, [&](std::size_t x) {
            __m256i tile[Side];
            for (std::size_t i = 0; i < Side; ++i) {
                const std::uint8_t* const row = rows[x + i];
                tile[i] = ShuffleGroup<WindowCount>(row + lanes[0], row + lanes[1], controls);
                Prefetch(row + ahead);
            }
            Transpose<SampleBytes>(tile);
            std::uint8_t* const corner = dst + start / SampleBytes * dstStride + x * SampleBytes;
            for (std::size_t i = 0; i < Side; ++i) { // row i of the group's first half | of its second half
                Store16(corner + i * dstStride, _mm256_castsi256_si128(tile[i]));
                Store16(corner + (Side + i) * dstStride, _mm256_extracti128_si256(tile[i], 1));
            }
        });
        ++group;
    });
}

template <std::size_t SampleBytes>
void TransposeRows(const RowMap& map, const std::uint8_t* const* rows, std::uint32_t rowCount, std::uint8_t* dst,
                   std::size_t dstStride) {
    if (rowCount < 16 / SampleBytes || map.windowCount == 0) {
        const auto transpose = SampleBytes == 1 ? ScalarKernels.transposeRows8 : ScalarKernels.transposeRows16;
        return transpose(map, rows, rowCount, dst, dstStride);
    }
    const auto transpose = map.windowCount == 1   ? TransposeGroups<SampleBytes, 1>
                           : map.windowCount == 2 ? TransposeGroups<SampleBytes, 2>
                                                  : TransposeGroups<SampleBytes, 4>;
    transpose(map, rows, rowCount, dst, dstStride);
}

// In 16 bits, halved: (298 (Y - 16) + c) >> 8 = (149 (Y - 16) + (c >> 1)) >> 7. 4096 is taken from the Y term and added
// to the U,V terms, so that each fits; where a saturating addition saturates, the result is clamped anyway.
struct UVTerms {
    explicit UVTerms(__m256i pairs) {
        const __m256i centered = _mm256_xor_si256(pairs, _mm256_set1_epi8(-128)); // U - 128, V - 128
        const __m256i offset = _mm256_set1_epi16(4096 + 64);
        const auto weighted = [&](int u, int v) {
            return _mm256_maddubs_epi16(_mm256_set1_epi16(static_cast<short>(u | v << 8)), centered);
        };
        halfBlue = _mm256_add_epi16(weighted(129, 0), _mm256_set1_epi16((4096 + 64) / 2)); // added twice
        green = _mm256_sub_epi16(offset, weighted(50, 104));
        // 409 V / 2 = 204 V + V / 2, rounded down
        red = _mm256_add_epi16(_mm256_add_epi16(weighted(0, 204), _mm256_srai_epi16(centered, 9)), offset);
    }
    __m256i halfBlue, green, red; // one per pair: pairs 0..7 | 8..15
};

// One channel of 32 pixels. `low` has the Y terms of pixels 0..7 | 16..23, `high` those of 8..15 | 24..31. The U,V
// terms are added `times` times.
__m256i Channel(__m256i low, __m256i high, __m256i uvTerms, int times) {
    const __m256i uvLow = _mm256_unpacklo_epi16(uvTerms, uvTerms); // pairs 0, 0, 1, 1, 2, 2, 3, 3 | 8, 8 ...
    const __m256i uvHigh = _mm256_unpackhi_epi16(uvTerms, uvTerms); // pairs 4, 4, 5, 5, 6, 6, 7, 7 | 12, 12 ...
    for (int i = 0; i < times; ++i) {
        low = _mm256_adds_epi16(low, uvLow);
        high = _mm256_adds_epi16(high, uvHigh);
    }
    return _mm256_packus_epi16(_mm256_srai_epi16(low, 7), _mm256_srai_epi16(high, 7)); // 0..15 | 16..31
}

void StoreBgr24(std::uint8_t* dst, __m256i blue, __m256i green, __m256i red) {
    // In each lane byte n of channel c belongs at 3 n + c of 48; modulo 16 no two bytes of a channel meet.
    const auto shuffle = [](__m256i channel, __m128i order) {
        return _mm256_shuffle_epi8(channel, _mm256_broadcastsi128_si256(order));
    };
    blue = shuffle(blue, _mm_setr_epi8(0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10, 5));
    green = shuffle(green, _mm_setr_epi8(5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10));
    red = shuffle(red, _mm_setr_epi8(10, 5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15));
    // Takes every third byte from `a`, starting with byte 0, the bytes after those from `b`, the others from `c`.
    const auto interleave = [](__m256i a, __m256i b, __m256i c) {
        const __m128i fromA = _mm_setr_epi8(-1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1);
        const __m128i fromB = _mm_setr_epi8(0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0);
        return _mm256_blendv_epi8(_mm256_blendv_epi8(c, b, _mm256_broadcastsi128_si256(fromB)), a,
                                  _mm256_broadcastsi128_si256(fromA));
    };
    // Bytes 0..15, 16..31 and 32..47 of lane 0 | of lane 1.
    const __m256i first = interleave(blue, green, red);
    const __m256i second = interleave(green, red, blue);
    const __m256i third = interleave(red, blue, green);
    Store32(dst, _mm256_permute2x128_si256(first, second, 0x20));
    Store32(dst + 32, _mm256_permute2x128_si256(third, first, 0x30));
    Store32(dst + 64, _mm256_permute2x128_si256(second, third, 0x31));
}

void Nv12ToBgr24Rows(const std::uint8_t* srcY, const std::uint8_t* srcUV, std::uint8_t* dst, std::uint32_t width) {
    if (width < Block) {
        return ScalarKernels.nv12ToBgr24Rows(srcY, srcUV, dst, width);
    }
    const __m256i weight = _mm256_set1_epi16(149);
    const __m256i offset = _mm256_set1_epi16(149 * (128 - 16) - 4096); // The weight is applied to Y - 128.
    ForBlocks(width, [=](std::size_t start) {
        const UVTerms terms(Load32(srcUV + start));
        for (std::size_t row = 0; row < 2; ++row) {
            const std::size_t at = start + row * width;
            const __m256i centered = _mm256_xor_si256(Load32(srcY + at), _mm256_set1_epi8(-128));
            // Each Y byte twice in a word; the weight of the upper one is 0.
            const __m256i low =
                _mm256_add_epi16(_mm256_maddubs_epi16(weight, _mm256_unpacklo_epi8(centered, centered)), offset);
            const __m256i high =
                _mm256_add_epi16(_mm256_maddubs_epi16(weight, _mm256_unpackhi_epi8(centered, centered)), offset);
            StoreBgr24(dst + 3 * at, Channel(low, high, terms.halfBlue, 2), Channel(low, high, terms.green, 1),
                       Channel(low, high, terms.red, 1));
        }
    });
}

} // namespace

const RowKernels Avx2Kernels = {
    .name = "AVX2",
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
