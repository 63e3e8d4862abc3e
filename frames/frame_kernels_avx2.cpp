// The AVX2 kernels that move samples: copies, byte shuffles and turned tiles.
#include "frames/frame_kernels_avx2.h"

#ifdef _MSC_VER
#include <intrin.h>
#endif

#include <cstring>

namespace receiver {
namespace avx2 {
namespace {

void Copy(const std::uint8_t* source, std::size_t byteCount, std::uint8_t* drawn) {
    constexpr std::size_t StringMoveBytes = 65536; // from here on it beats the C library's loop, which is measured
    if (byteCount < StringMoveBytes) {
        std::memcpy(drawn, source, byteCount);
        return;
    }
#ifdef _MSC_VER
    __movsb(drawn, source, byteCount);
#else
    __asm__ volatile("rep movsb" : "+D"(drawn), "+S"(source), "+c"(byteCount) : : "memory");
#endif
}

// The two windows number `window` of a group whose lanes begin at `lane0` and `lane1`.
struct SeparateLanes {
    static __m256i Load(const std::uint8_t* lane0, const std::uint8_t* lane1, std::size_t window) {
        return _mm256_inserti128_si256(_mm256_castsi128_si256(Load16(lane0 + 16 * window)), Load16(lane1 + 16 * window),
                                       1);
    }
};
struct JoinedLanes {
    static __m256i Load(const std::uint8_t* lane0, const std::uint8_t*, std::size_t window) {
        return Load32(lane0 + 16 * window);
    }
};

template <std::size_t WindowCount>
struct Controls {
    explicit Controls(const std::uint8_t* bytes) {
        for (std::size_t window = 0; window < WindowCount; ++window) {
            ofWindow[window] = Load32(bytes + 32 * window);
        }
    }
    __m256i ofWindow[WindowCount];
};

// Lane 0: bytes 0..15 of the group, lane 1: bytes 16..31.
template <typename Lanes, std::size_t WindowCount>
__m256i ShuffleGroup(const std::uint8_t* lane0, const std::uint8_t* lane1, const Controls<WindowCount>& controls) {
    __m256i group = _mm256_shuffle_epi8(Lanes::Load(lane0, lane1, 0), controls.ofWindow[0]);
    for (std::size_t window = 1; window < WindowCount; ++window) {
        group =
            _mm256_or_si256(group, _mm256_shuffle_epi8(Lanes::Load(lane0, lane1, window), controls.ofWindow[window]));
    }
    return group;
}

template <typename Lanes, std::size_t WindowCount, bool Twins>
void SpreadGroups(const RowShuffle& row, const std::uint8_t* source, const std::uint8_t* next, std::uint8_t* drawn,
                  std::uint8_t* twin) {
    constexpr std::size_t ControlBytes = 32 * WindowCount;
    constexpr std::ptrdiff_t LineBytes = 64;
    // Copies of what a store might change, for all that the compiler knows.
    const std::uint32_t* const laneOffsets = row.laneOffsets;
    const std::uint8_t* const allControls = row.controls;
    const std::size_t lastGroupAt = row.byteCount - Block;
    const std::size_t groupCount = (std::size_t{row.byteCount} + Block - 1) / Block;
    const std::size_t regularGroups = row.regularGroups;
    const std::size_t period = row.period;
    const std::ptrdiff_t step = row.periodStep;
    // The other places lie at a fixed distance, which leaves two pointers to move.
    const std::ptrdiff_t toNext = next - source;
    const std::ptrdiff_t toTwin = Twins ? twin - drawn : 0;
    const auto draw = [=](const std::uint8_t* lane0, std::ptrdiff_t toLane1, std::uint8_t* to, bool asksAhead,
                          const Controls<WindowCount>& controls) {
        const __m256i group = ShuffleGroup<Lanes, WindowCount>(lane0, lane0 + toLane1, controls);
        Store32(to, group);
        if (Twins) {
            Store32(to + toTwin, group);
        }
        if (asksAhead) {
            Prefetch(lane0 + toNext);
        }
    };
    // All groups with equal controls one after the other, so that the controls stay in registers.
    for (std::size_t phase = 0; phase < period; ++phase) {
        const Controls<WindowCount> controls(allControls + phase * ControlBytes);
        const std::uint8_t* lane0 = source + laneOffsets[2 * phase];
        const std::ptrdiff_t toLane1 = std::ptrdiff_t{laneOffsets[2 * phase + 1]} - laneOffsets[2 * phase];
        const std::uint8_t* const end = drawn + regularGroups * Block;
        const auto drawAll = [&](bool asksAhead) {
            for (std::uint8_t* to = drawn + phase * Block; to < end; to += period * Block) {
                draw(lane0, toLane1, to, asksAhead, controls);
                lane0 += step;
            }
        };
        // One phase alone meets every line of the source, unless its steps are longer than a line.
        if (phase > 0 && -LineBytes <= step && step <= LineBytes) {
            drawAll(false);
        } else {
            drawAll(true);
        }
    }
    for (std::size_t group = regularGroups; group < groupCount; ++group) {
        const std::uint32_t* const lanes = laneOffsets + 2 * group;
        draw(source + lanes[0], std::ptrdiff_t{lanes[1]} - lanes[0],
             drawn + (group * Block < lastGroupAt ? group * Block : lastGroupAt), true,
             Controls<WindowCount>(allControls + group * ControlBytes));
    }
}

template <bool Twins>
void SpreadRow(const RowShuffle& row, const std::uint8_t* source, const std::uint8_t* next, std::uint8_t* drawn,
               std::uint8_t* twin) {
    const auto spread = row.windowCount == 1   ? SpreadGroups<SeparateLanes, 1, Twins>
                        : row.joined           ? SpreadGroups<JoinedLanes, 2, Twins>
                        : row.windowCount == 2 ? SpreadGroups<SeparateLanes, 2, Twins>
                        : row.windowCount == 3 ? SpreadGroups<SeparateLanes, 3, Twins>
                                               : SpreadGroups<SeparateLanes, 4, Twins>;
    spread(row, source, next, drawn, twin);
}

void Spread(const RowShuffle& row, const std::uint8_t* source, const std::uint8_t* next, std::uint8_t* drawn,
            std::uint8_t* twin) {
    if (row.windowCount == 0) {
        return ScalarKernels.spread(row, source, next, drawn, twin);
    }
    (twin != nullptr ? SpreadRow<true> : SpreadRow<false>)(row, source, next, drawn, twin);
}

void Interleave(const std::uint8_t* u, const std::uint8_t* v, std::uint32_t pairCount, std::uint8_t* drawn) {
    if (pairCount < Block) {
        return ScalarKernels.interleave(u, v, pairCount, drawn);
    }
    ForBlocks(pairCount, [&](std::uint32_t at) {
        const __m256i us = Load32(u + at);
        const __m256i vs = Load32(v + at);
        const __m256i low = _mm256_unpacklo_epi8(us, vs); // pairs 0..7 | 16..23
        const __m256i high = _mm256_unpackhi_epi8(us, vs); // pairs 8..15 | 24..31
        std::uint8_t* const pairs = drawn + std::size_t{2} * at;
        Store32(pairs, _mm256_permute2x128_si256(low, high, 0x20)); // both lower lanes: pairs 0..15
        Store32(pairs + 32, _mm256_permute2x128_si256(low, high, 0x31)); // both upper lanes: pairs 16..31
    });
}

// Interleaves the first with the second half of the vectors, sample by sample, in each lane. After log2(count) rounds
// sample i of vector v has become sample v of vector i.
template <std::size_t SampleBytes, std::size_t Count>
void Transpose(__m256i (&vectors)[Count]) {
    for (std::size_t round = 1; round < Count; round *= 2) {
        __m256i mixed[Count];
        for (std::size_t i = 0; i < Count / 2; ++i) {
            const __m256i a = vectors[i];
            const __m256i b = vectors[i + Count / 2];
            // a0 b0 a1 b1 ... of the lane's lower half, then of its upper half
            mixed[2 * i] = SampleBytes == 1 ? _mm256_unpacklo_epi8(a, b) : _mm256_unpacklo_epi16(a, b);
            mixed[2 * i + 1] = SampleBytes == 1 ? _mm256_unpackhi_epi8(a, b) : _mm256_unpackhi_epi16(a, b);
        }
        for (std::size_t i = 0; i < Count; ++i) {
            vectors[i] = mixed[i];
        }
    }
}

// Tiles of as many lines as a lane has samples, by a group of samples: each lane holds a square.
template <std::size_t SampleBytes, typename Lanes, std::size_t WindowCount>
void TurnGroups(const RowShuffle& row, const std::uint8_t* slot, const std::uint32_t* lines, std::size_t lineCount,
                std::uint8_t* drawn, std::size_t drawnPitch) {
    constexpr std::size_t Side = 16 / SampleBytes;
    const std::size_t groupCount = (std::size_t{row.byteCount} + Block - 1) / Block;
    for (std::size_t group = 0; group < groupCount; ++group) {
        const std::size_t at = (group + 1) * Block < row.byteCount ? group * Block : row.byteCount - Block;
        const Controls<WindowCount> controls(row.controls + group * Block * WindowCount);
        const std::size_t lane0 = row.laneOffsets[2 * group];
        const std::size_t lane1 = row.laneOffsets[2 * group + 1];
        // The far end of what the next group reads: the rest was read or asked for before.
        const std::size_t nextGroup = group + 1 < groupCount ? group + 1 : group;
        const std::size_t next0 = row.laneOffsets[2 * nextGroup];
        const std::size_t next1 = row.laneOffsets[2 * nextGroup + 1];
        const std::size_t next = next1 + (next0 < next1 ? 16 * WindowCount - 1 : 0);
        for (std::size_t column = 0; column < lineCount; column += Side) {
            const std::size_t x = column + Side > lineCount ? lineCount - Side : column;
            __m256i tile[Side];
            for (std::size_t i = 0; i < Side; ++i) {
                const std::uint8_t* const line = slot + lines[x + i];
                tile[i] = ShuffleGroup<Lanes, WindowCount>(line + lane0, line + lane1, controls);
                Prefetch(line + next);
            }
            Transpose<SampleBytes>(tile);
            std::uint8_t* const corner = drawn + at / SampleBytes * drawnPitch + x * SampleBytes;
            for (std::size_t i = 0; i < Side; ++i) { // row i of the group's first half | of its second half
                Store16(corner + i * drawnPitch, _mm256_castsi256_si128(tile[i]));
                Store16(corner + (Side + i) * drawnPitch, _mm256_extracti128_si256(tile[i], 1));
            }
        }
    }
}

template <std::size_t SampleBytes>
void Turn(const RowShuffle& row, const std::uint8_t* slot, const std::uint32_t* lines, std::uint32_t lineCount,
          std::uint8_t* drawn, std::size_t drawnPitch) {
    if (lineCount < 16 / SampleBytes || row.windowCount == 0) {
        return (SampleBytes == 1 ? ScalarKernels.turnBytes : ScalarKernels.turnPairs)(row, slot, lines, lineCount,
                                                                                      drawn, drawnPitch);
    }
    const auto turn = row.windowCount == 1   ? TurnGroups<SampleBytes, SeparateLanes, 1>
                      : row.joined           ? TurnGroups<SampleBytes, JoinedLanes, 2>
                      : row.windowCount == 2 ? TurnGroups<SampleBytes, SeparateLanes, 2>
                      : row.windowCount == 3 ? TurnGroups<SampleBytes, SeparateLanes, 3>
                                             : TurnGroups<SampleBytes, SeparateLanes, 4>;
    turn(row, slot, lines, lineCount, drawn, drawnPitch);
}

} // namespace
} // namespace avx2

const FrameKernels Avx2Kernels = {
    .name = "AVX2",
    .copy = avx2::Copy,
    .spread = avx2::Spread,
    .interleave = avx2::Interleave,
    .luma = avx2::Luma,
    .chroma = avx2::Chroma,
    .turnBytes = avx2::Turn<1>,
    .turnPairs = avx2::Turn<2>,
    .blueGreenRed = avx2::BlueGreenRed,
};

} // namespace receiver
