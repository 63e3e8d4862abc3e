// The AVX2 kernels that compute colours, exactly, in 16 bits.
#include "frames/frame_kernels_avx2.h"

namespace receiver::avx2 {
namespace {

// Four bytes, signed or not, repeated.
__m256i RepeatBytes(int first, int second, int third, int fourth) {
    return _mm256_set1_epi32((first & 0xFF) | (second & 0xFF) << 8 | (third & 0xFF) << 16 | (fourth & 0x7F) << 24);
}

// 8 pixels. Those with blue first are read from the byte before them on, which brings green and red into one pair of
// bytes; nothing is before the first pixel of a row.
template <bool RedFirst>
__m256i LoadPairing(const std::uint8_t* pixels, bool rowBegins) {
    if constexpr (RedFirst) {
        return Load32(pixels);
    } else {
        return rowBegins ? _mm256_slli_epi32(Load32(pixels), 8) : Load32(pixels - 1);
    }
}

// The sum of each pixel's weighted colours, as 32 bits. 129 is too large for a signed byte, but 66 and 129 are 3 times
// 22 and 43.
template <bool RedFirst>
__m256i LumaSums(__m256i pixels) {
    const __m256i weights = RedFirst ? RepeatBytes(22, 43, 25, 0) : RepeatBytes(0, 25, 43, 22);
    const __m256i factors = _mm256_set1_epi32(RedFirst ? 3 | 1 << 16 : 1 | 3 << 16);
    return _mm256_madd_epi16(_mm256_maddubs_epi16(pixels, weights), factors);
}

template <bool RedFirst, bool Mirrored>
void LumaOf(const std::uint8_t* pixels, const std::uint8_t* next, std::uint32_t pixelCount, std::uint8_t* drawn) {
    const __m256i offset = _mm256_set1_epi16(128 + 4096); // 128 rounds, 4096 is 16 after the shift
    const __m256i order =
        Mirrored ? _mm256_setr_epi32(7, 3, 6, 2, 5, 1, 4, 0) : _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    const __m256i backwards =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12));
    ForBlocks(pixelCount, [&](std::uint32_t at) {
        const std::uint8_t* const block = pixels + std::size_t{4} * at;
        Prefetch(next + std::size_t{4} * at);
        Prefetch(next + std::size_t{4} * at + 64);
        // Pixels 0..3, 8..11 | 4..7, 12..15, and likewise from 16 on.
        const __m256i low = _mm256_packus_epi32(LumaSums<RedFirst>(LoadPairing<RedFirst>(block, at == 0)),
                                                LumaSums<RedFirst>(LoadPairing<RedFirst>(block + 32, false)));
        const __m256i high = _mm256_packus_epi32(LumaSums<RedFirst>(LoadPairing<RedFirst>(block + 64, false)),
                                                 LumaSums<RedFirst>(LoadPairing<RedFirst>(block + 96, false)));
        // Fours of pixels 0, 2, 4, 6 | 1, 3, 5, 7.
        __m256i luma = _mm256_packus_epi16(_mm256_srli_epi16(_mm256_add_epi16(low, offset), 8),
                                           _mm256_srli_epi16(_mm256_add_epi16(high, offset), 8));
        luma = Mirrored ? _mm256_shuffle_epi8(luma, backwards) : luma; // within each four
        Store32(drawn + (Mirrored ? pixelCount - Block - at : at), _mm256_permutevar8x32_epi32(luma, order));
    });
}

// Which pixels of a row become pairs.
enum class Pick {
    Each,
    Even,
    OddMirrored, // the last one first
};

// 8 pixels: 0..3 | 4..7, or of the even or odd ones 0, 1, 4, 5 | 2, 3, 6, 7.
template <Pick Picked>
__m256i LoadPixels(const std::uint8_t* pixels) {
    if constexpr (Picked == Pick::Each) {
        return Load32(pixels);
    } else {
        constexpr int Selected = Picked == Pick::Even ? 0x88 : 0xDD; // elements 0 and 2, or 1 and 3, of both in a lane
        return _mm256_castps_si256(
            _mm256_shuffle_ps(_mm256_castsi256_ps(Load32(pixels)), _mm256_castsi256_ps(Load32(pixels + 32)), Selected));
    }
}

// 16-bit sums of the weighted colours of two times 8 pixels: the first four of both | the last four of both.
__m256i ChromaSums(__m256i pixels0, __m256i pixels1, __m256i weights) {
    const __m256i ones = _mm256_set1_epi16(1);
    return _mm256_packs_epi32(_mm256_madd_epi16(_mm256_maddubs_epi16(pixels0, weights), ones),
                              _mm256_madd_epi16(_mm256_maddubs_epi16(pixels1, weights), ones));
}

template <Pick Picked>
void ChromaOf(const std::uint8_t* pixels, std::uint32_t pairCount, bool redFirst, std::uint8_t* drawn) {
    constexpr std::uint32_t PairBlock = 16;
    constexpr std::size_t PairSource = Picked == Pick::Each ? 4 : 8;
    const __m256i weightsU = redFirst ? RepeatBytes(-38, -74, 112, 0) : RepeatBytes(112, -74, -38, 0);
    const __m256i weightsV = redFirst ? RepeatBytes(112, -94, -18, 0) : RepeatBytes(-18, -94, 112, 0);
    const __m256i offset = _mm256_set1_epi16(static_cast<short>(128 * 256 + 128));
    const __m256i highBytes = _mm256_set1_epi16(static_cast<short>(0xFF00));
    // Twos of pairs: 0, 1, 4, 5 | 2, 3, 6, 7 of each pixel; 0, 2, 4, 6 | 1, 3, 5, 7 of the even or odd ones.
    const __m256i order = Picked == Pick::Each   ? _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7)
                          : Picked == Pick::Even ? _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)
                                                 : _mm256_setr_epi32(7, 3, 6, 2, 5, 1, 4, 0);
    ForBlocks<PairBlock>(pairCount, [&](std::uint32_t at) {
        const std::uint8_t* const block = pixels + PairSource * at;
        const __m256i pixels0 = LoadPixels<Picked>(block);
        const __m256i pixels1 = LoadPixels<Picked>(block + PairSource * 8);
        const __m256i u = _mm256_add_epi16(ChromaSums(pixels0, pixels1, weightsU), offset);
        const __m256i v = _mm256_add_epi16(ChromaSums(pixels0, pixels1, weightsV), offset);
        __m256i pairs = _mm256_blendv_epi8(_mm256_srli_epi16(u, 8), v, highBytes);
        if constexpr (Picked == Pick::OddMirrored) { // pairs 1, 0, 3, 2 ...
            pairs = _mm256_or_si256(_mm256_slli_epi32(pairs, 16), _mm256_srli_epi32(pairs, 16));
        }
        const std::size_t to = Picked == Pick::OddMirrored ? pairCount - PairBlock - at : at;
        Store32(drawn + 2 * to, _mm256_permutevar8x32_epi32(pairs, order));
    });
}

// In 16 bits, halved: (298 (Y - 16) + c) >> 8 = (149 (Y - 16) + (c >> 1)) >> 7. 4096 is taken from the luma term and
// added to the chroma terms, so that each fits; where a saturating addition saturates, the result is clamped anyhow.
struct ChromaTerms {
    explicit ChromaTerms(__m256i pairs) {
        const __m256i centred = _mm256_xor_si256(pairs, _mm256_set1_epi8(-128)); // U - 128, V - 128
        const __m256i offset = _mm256_set1_epi16(4096 + 64);
        const auto weighted = [&](int u, int v) {
            return _mm256_maddubs_epi16(_mm256_set1_epi16(static_cast<short>(u | v << 8)), centred);
        };
        halfBlue = _mm256_add_epi16(weighted(129, 0), _mm256_set1_epi16((4096 + 64) / 2)); // added twice
        green = _mm256_sub_epi16(offset, weighted(50, 104));
        // 409 V / 2 = 204 V + V / 2, rounded down
        red = _mm256_add_epi16(_mm256_add_epi16(weighted(0, 204), _mm256_srai_epi16(centred, 9)), offset);
    }
    __m256i halfBlue, green, red; // one per pair: pairs 0..7 | 8..15
};

// The byte of 32 pixels from their luma terms, pixels 0..7 | 16..23 and 8..15 | 24..31, and their chroma terms.
__m256i Channel(__m256i lumaLow, __m256i lumaHigh, __m256i chroma, int times) {
    const __m256i chromaLow = _mm256_unpacklo_epi16(chroma, chroma); // pairs 0, 0, 1, 1, 2, 2, 3, 3 | 8, 8 ...
    const __m256i chromaHigh = _mm256_unpackhi_epi16(chroma, chroma); // pairs 4, 4, 5, 5, 6, 6, 7, 7 | 12, 12 ...
    for (int i = 0; i < times; ++i) {
        lumaLow = _mm256_adds_epi16(lumaLow, chromaLow);
        lumaHigh = _mm256_adds_epi16(lumaHigh, chromaHigh);
    }
    return _mm256_packus_epi16(_mm256_srai_epi16(lumaLow, 7), _mm256_srai_epi16(lumaHigh, 7)); // 0..15 | 16..31
}

void StoreBlueGreenRed(std::uint8_t* pixels, __m256i blue, __m256i green, __m256i red) {
    // In each lane byte n of channel c belongs at 3 n + c of 48; modulo 16 no two bytes of a channel meet.
    const __m256i blueOrder =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10, 5));
    const __m256i greenOrder =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10));
    const __m256i redOrder =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(10, 5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15));
    // 0xFF at every third byte, from byte 0 and from byte 1 on.
    const __m256i from0 =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(-1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1));
    const __m256i from1 =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0));
    blue = _mm256_shuffle_epi8(blue, blueOrder);
    green = _mm256_shuffle_epi8(green, greenOrder);
    red = _mm256_shuffle_epi8(red, redOrder);
    // Bytes 0..15, 16..31 and 32..47 of lane 0 | of lane 1. They begin with blue, green and red.
    const __m256i first = _mm256_blendv_epi8(_mm256_blendv_epi8(red, green, from1), blue, from0);
    const __m256i second = _mm256_blendv_epi8(_mm256_blendv_epi8(blue, red, from1), green, from0);
    const __m256i third = _mm256_blendv_epi8(_mm256_blendv_epi8(green, blue, from1), red, from0);
    Store32(pixels, _mm256_permute2x128_si256(first, second, 0x20));
    Store32(pixels + 32, _mm256_permute2x128_si256(third, first, 0x30));
    Store32(pixels + 64, _mm256_permute2x128_si256(second, third, 0x31));
}

} // namespace

void Luma(const std::uint8_t* pixels, const std::uint8_t* next, std::uint32_t pixelCount, PixelOrder order,
          std::uint8_t* drawn) {
    if (pixelCount < Block) {
        return ScalarKernels.luma(pixels, next, pixelCount, order, drawn);
    }
    const auto forwards = order.redFirst ? LumaOf<true, false> : LumaOf<false, false>;
    const auto backwards = order.redFirst ? LumaOf<true, true> : LumaOf<false, true>;
    (order.mirrored ? backwards : forwards)(pixels, next, pixelCount, drawn);
}

void Chroma(const std::uint8_t* pixels, std::uint32_t pixelCount, bool halved, PixelOrder order, std::uint8_t* drawn) {
    const std::uint32_t pairCount = halved ? pixelCount / 2 : pixelCount;
    if (pairCount < 16) {
        return ScalarKernels.chroma(pixels, pixelCount, halved, order, drawn);
    }
    const auto chroma = order.mirrored ? ChromaOf<Pick::OddMirrored>
                        : halved       ? ChromaOf<Pick::Even>
                                       : ChromaOf<Pick::Each>;
    chroma(pixels, pairCount, order.redFirst, drawn);
}

void BlueGreenRed(const std::uint8_t* luma, const std::uint8_t* chroma, std::uint32_t width, std::uint8_t* pixels) {
    if (width < Block) {
        return ScalarKernels.blueGreenRed(luma, chroma, width, pixels);
    }
    const __m256i lumaWeight = _mm256_set1_epi16(149);
    const __m256i lumaOffset = _mm256_set1_epi16(149 * (128 - 16) - 4096); // the luma is weighted less 128
    const __m256i sign = _mm256_set1_epi8(-128);
    ForBlocks(width, [&](std::uint32_t at) {
        const ChromaTerms terms(Load32(chroma + at));
        for (std::size_t row = 0; row < 2; ++row) {
            const __m256i centred = _mm256_xor_si256(Load32(luma + row * width + at), sign);
            // Each luma byte twice in a word; the weight of the upper one is 0.
            const __m256i low =
                _mm256_add_epi16(_mm256_maddubs_epi16(lumaWeight, _mm256_unpacklo_epi8(centred, centred)), lumaOffset);
            const __m256i high =
                _mm256_add_epi16(_mm256_maddubs_epi16(lumaWeight, _mm256_unpackhi_epi8(centred, centred)), lumaOffset);
            StoreBlueGreenRed(pixels + 3 * (row * width + at), Channel(low, high, terms.halfBlue, 2),
                              Channel(low, high, terms.green, 1), Channel(low, high, terms.red, 1));
        }
    });
}

} // namespace receiver::avx2
