// What the files with the AVX2 kernels share. They alone are compiled with AVX2 enabled, so they must not use inline
// functions of the standard library or of ours but those here, which are static: the linker might choose an AVX2 copy
// of any other for the whole program.
#pragma once

#include "frames/frame_kernels.h"

#include <immintrin.h>

namespace receiver::avx2 {

constexpr std::uint32_t Block = 32; // bytes of a vector, and samples that most kernels do at a time

static inline __m128i Load16(const std::uint8_t* bytes) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}
static inline __m256i Load32(const std::uint8_t* bytes) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
}
static inline void Store16(std::uint8_t* bytes, __m128i value) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), value);
}
static inline void Store32(std::uint8_t* bytes, __m256i value) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes), value);
}
static inline void Prefetch(const std::uint8_t* bytes) {
    _mm_prefetch(reinterpret_cast<const char*>(bytes), _MM_HINT_T0);
}

// Calls body(at) for each block of a row of at least one: the last one ends with the row and may overlap the one
// before.
template <std::uint32_t BlockSize = Block, typename Body>
static inline void ForBlocks(std::uint32_t length, const Body& body) {
    std::uint32_t at = 0;
    for (; at + BlockSize <= length; at += BlockSize) {
        body(at);
    }
    if (at < length) {
        body(length - BlockSize);
    }
}

// frames/frame_colours_avx2.cpp
void Luma(const std::uint8_t* pixels, const std::uint8_t* next, std::uint32_t pixelCount, PixelOrder order,
          std::uint8_t* drawn);
void Chroma(const std::uint8_t* pixels, std::uint32_t pixelCount, bool halved, PixelOrder order, std::uint8_t* drawn);
void BlueGreenRed(const std::uint8_t* luma, const std::uint8_t* chroma, std::uint32_t width, std::uint8_t* pixels);

} // namespace receiver::avx2
