// The kernels in plain C++: what runs where AVX2 is missing, and what the AVX2 kernels leave to it (short rows).
#include "frames/frame_kernels.h"

#include <algorithm>
#include <cstring>

namespace receiver {
namespace {

void Copy(const std::uint8_t* source, std::size_t byteCount, std::uint8_t* drawn) {
    std::memcpy(drawn, source, byteCount);
}

template <std::size_t SampleBytes>
void SpreadSamples(const std::uint32_t* offsets, std::size_t count, const std::uint8_t* source, std::uint8_t* drawn) {
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(drawn + i * SampleBytes, source + offsets[i], SampleBytes);
    }
}

void Spread(const RowShuffle& row, const std::uint8_t* source, const std::uint8_t*, std::uint8_t* drawn,
            std::uint8_t* twin) {
    if (row.sampleBytes == 1) {
        SpreadSamples<1>(row.sampleOffsets, row.byteCount, source, drawn);
    } else if (row.sampleBytes == 2) {
        SpreadSamples<2>(row.sampleOffsets, row.byteCount / 2, source, drawn);
    } else {
        SpreadSamples<4>(row.sampleOffsets, row.byteCount / 4, source, drawn);
    }
    if (twin != nullptr) {
        std::memcpy(twin, drawn, row.byteCount);
    }
}

void Interleave(const std::uint8_t* u, const std::uint8_t* v, std::uint32_t pairCount, std::uint8_t* drawn) {
    for (std::size_t i = 0; i < pairCount; ++i) {
        drawn[2 * i] = u[i];
        drawn[2 * i + 1] = v[i];
    }
}

// Calls body(pixel, i) for every `step`th pixel in the order in which they are drawn.
template <bool Mirrored, typename Body>
void ForPixels(const std::uint8_t* pixels, std::size_t count, std::size_t step, const Body& body) {
    for (std::size_t i = 0; i < count / step; ++i) {
        body(pixels + 4 * (Mirrored ? count - 1 - step * i : step * i), i);
    }
}

// BT.601 limited range in 8-bit fixed point. No clamp: luma stays in 16..235, chroma in 16..240.
template <bool Mirrored, std::size_t RedByte>
void LumaOf(const std::uint8_t* pixels, std::size_t count, std::uint8_t* drawn) {
    ForPixels<Mirrored>(pixels, count, 1, [drawn](const std::uint8_t* pixel, std::size_t i) {
        const int sum = 66 * pixel[RedByte] + 129 * pixel[1] + 25 * pixel[2 - RedByte];
        drawn[i] = static_cast<std::uint8_t>(((sum + 128) >> 8) + 16);
    });
}

template <bool Mirrored, std::size_t RedByte>
void ChromaOf(const std::uint8_t* pixels, std::size_t count, bool halved, std::uint8_t* drawn) {
    ForPixels<Mirrored>(pixels, count, halved ? 2 : 1, [drawn](const std::uint8_t* pixel, std::size_t i) {
        const int r = pixel[RedByte];
        const int g = pixel[1];
        const int b = pixel[2 - RedByte];
        drawn[2 * i] = static_cast<std::uint8_t>(((-38 * r - 74 * g + 112 * b + 128) >> 8) + 128);
        drawn[2 * i + 1] = static_cast<std::uint8_t>(((112 * r - 94 * g - 18 * b + 128) >> 8) + 128);
    });
}

void Luma(const std::uint8_t* pixels, const std::uint8_t*, std::uint32_t pixelCount, PixelOrder order,
          std::uint8_t* drawn) {
    const auto forwards = order.redFirst ? LumaOf<false, 0> : LumaOf<false, 2>;
    const auto backwards = order.redFirst ? LumaOf<true, 0> : LumaOf<true, 2>;
    (order.mirrored ? backwards : forwards)(pixels, pixelCount, drawn);
}

void Chroma(const std::uint8_t* pixels, std::uint32_t pixelCount, bool halved, PixelOrder order, std::uint8_t* drawn) {
    const auto forwards = order.redFirst ? ChromaOf<false, 0> : ChromaOf<false, 2>;
    const auto backwards = order.redFirst ? ChromaOf<true, 0> : ChromaOf<true, 2>;
    (order.mirrored ? backwards : forwards)(pixels, pixelCount, halved, drawn);
}

template <std::size_t SampleBytes>
void Turn(const RowShuffle& row, const std::uint8_t* slot, const std::uint32_t* lines, std::uint32_t lineCount,
          std::uint8_t* drawn, std::size_t drawnPitch) {
    for (std::size_t y = 0; y < row.byteCount / SampleBytes; ++y, drawn += drawnPitch) {
        SpreadSamples<SampleBytes>(lines, lineCount, slot + row.sampleOffsets[y], drawn);
    }
}

std::uint8_t ClampToByte(int value) { return static_cast<std::uint8_t>(std::clamp(value, 0, 255)); }

// BT.601 limited range in 8-bit fixed point.
void BlueGreenRed(const std::uint8_t* luma, const std::uint8_t* chroma, std::uint32_t width, std::uint8_t* pixels) {
    for (std::size_t x = 0; x < width; x += 2) {
        const int u = chroma[x] - 128;
        const int v = chroma[x + 1] - 128;
        const int blue = 516 * u + 128;
        const int green = -100 * u - 208 * v + 128;
        const int red = 409 * v + 128;
        for (const std::size_t at : {x, x + 1, x + width, x + width + 1}) {
            const int y = (luma[at] - 16) * 298;
            pixels[3 * at] = ClampToByte((y + blue) >> 8);
            pixels[3 * at + 1] = ClampToByte((y + green) >> 8);
            pixels[3 * at + 2] = ClampToByte((y + red) >> 8);
        }
    }
}

} // namespace

const FrameKernels ScalarKernels = {
    .name = "scalar",
    .copy = Copy,
    .spread = Spread,
    .interleave = Interleave,
    .luma = Luma,
    .chroma = Chroma,
    .turnBytes = Turn<1>,
    .turnPairs = Turn<2>,
    .blueGreenRed = BlueGreenRed,
};

} // namespace receiver
