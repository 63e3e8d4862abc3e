#include "sample_camera/picture.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace sample_camera {
namespace {

// Two neighboring rows; the first one's weight is in 256ths.
struct Blend {
    std::uint32_t first;
    std::uint32_t second;
    std::uint32_t firstWeight;
};

// The source rows that destination row `index` lies between; sample centers of both pictures cover the same area.
Blend BlendOf(std::uint32_t index, std::uint32_t srcCount, bool enlarge) noexcept {
    if (enlarge) { // 2 to 3: centers at -1/6, 1/2 and 7/6 of each pair
        const std::uint32_t pair = index / 3 * 2;
        switch (index % 3) {
        case 0:
            return {pair == 0 ? 0 : pair - 1, pair, 43};
        case 1:
            return {pair, pair + 1, 128};
        default:
            return {pair + 1, std::min(pair + 2, srcCount - 1), 213};
        }
    }
    const std::uint32_t triple = index / 2 * 3; // 3 to 2: centers at 1/4 and 7/4 of each triple
    return index % 2 == 0 ? Blend{triple, triple + 1, 192} : Blend{triple + 1, triple + 2, 64};
}

std::uint8_t Mix(std::uint32_t first, std::uint32_t second, std::uint32_t firstWeight) noexcept {
    return static_cast<std::uint8_t>((first * firstWeight + second * (256 - firstWeight) + 128) >> 8);
}

void BlendRows(const std::uint8_t* first, const std::uint8_t* second, std::uint32_t firstWeight, std::uint8_t* dst,
               std::uint32_t width) noexcept {
    for (std::uint32_t x = 0; x < width; ++x) {
        dst[x] = Mix(first[x], second[x], firstWeight);
    }
}

// Each sample is `Step` bytes: 1 of Y, 2 of a U,V pair. `count` is the number of source samples; there is one more in
// front of `src` and one after it, equal to their neighbors.
template <std::size_t Step>
void EnlargeRow(const std::uint8_t* src, std::uint8_t* dst, std::size_t count) noexcept {
    for (std::size_t pair = 0; pair < count / 2; ++pair) {
        const std::uint8_t* const before = src + 2 * pair * Step - Step;
        std::uint8_t* const to = dst + 3 * pair * Step;
        for (std::size_t byte = 0; byte < Step; ++byte) {
            to[byte] = Mix(before[byte], before[Step + byte], 43);
            to[Step + byte] = Mix(before[Step + byte], before[2 * Step + byte], 128);
            to[2 * Step + byte] = Mix(before[2 * Step + byte], before[3 * Step + byte], 213);
        }
    }
}

template <std::size_t Step>
void ReduceRow(const std::uint8_t* src, std::uint8_t* dst, std::size_t count) noexcept {
    for (std::size_t triple = 0; triple < count / 3; ++triple) {
        const std::uint8_t* const from = src + 3 * triple * Step;
        std::uint8_t* const to = dst + 2 * triple * Step;
        for (std::size_t byte = 0; byte < Step; ++byte) {
            to[byte] = Mix(from[byte], from[Step + byte], 192);
            to[Step + byte] = Mix(from[Step + byte], from[2 * Step + byte], 64);
        }
    }
}

template <std::size_t Step>
void ScalePlane(const std::uint8_t* src, std::uint32_t width, std::uint32_t height, std::uint8_t* dst,
                bool enlarge) noexcept {
    std::array<std::uint8_t, Size1080p.width + 2 * Step> padded;
    std::uint8_t* const blended = padded.data() + Step;
    const std::uint32_t dstWidth = enlarge ? width / 2 * 3 : width / 3 * 2;
    const std::uint32_t dstHeight = enlarge ? height / 2 * 3 : height / 3 * 2;
    for (std::uint32_t y = 0; y < dstHeight; ++y) {
        const Blend rows = BlendOf(y, height, enlarge);
        BlendRows(src + std::size_t{rows.first} * width, src + std::size_t{rows.second} * width, rows.firstWeight,
                  blended, width);
        std::uint8_t* const row = dst + std::size_t{y} * dstWidth;
        if (enlarge) {
            std::memcpy(padded.data(), blended, Step);
            std::memcpy(blended + width, blended + width - Step, Step);
            EnlargeRow<Step>(blended, row, width / Step);
        } else {
            ReduceRow<Step>(blended, row, width / Step);
        }
    }
}

} // namespace

void ConvertNv12(const std::uint8_t* src, std::uint8_t* dst, const VideoFormat& format) noexcept {
    const std::size_t width = format.size.width;
    const std::size_t height = format.size.height;
    const std::uint8_t* const uvPlane = src + width * height;
    switch (format.pixels) {
    case PixelFormat::Nv12:
        std::memcpy(dst, src, ImageBytes(format));
        return;
    case PixelFormat::Yuy2: // Y0 U Y1 V: a row of Y interleaved with the row of U,V pairs
        for (std::size_t y = 0; y < height; ++y) {
            const std::uint8_t* const yRow = src + y * width;
            const std::uint8_t* const uvRow = uvPlane + y / 2 * width;
            std::uint8_t* const row = dst + y * width * 2;
            for (std::size_t x = 0; x < width; ++x) {
                row[2 * x] = yRow[x];
                row[2 * x + 1] = uvRow[x];
            }
        }
        return;
    case PixelFormat::I420: {
        std::memcpy(dst, src, width * height);
        const std::size_t pairCount = width * height / 4;
        std::uint8_t* const u = dst + width * height;
        std::uint8_t* const v = u + pairCount;
        for (std::size_t i = 0; i < pairCount; ++i) {
            u[i] = uvPlane[2 * i];
            v[i] = uvPlane[2 * i + 1];
        }
        return;
    }
    }
}

void ScaleNv12(const std::uint8_t* src, PictureSize srcSize, std::uint8_t* dst) noexcept {
    const bool enlarge = srcSize == Size720p;
    const PictureSize dstSize = enlarge ? Size1080p : Size720p;
    ScalePlane<1>(src, srcSize.width, srcSize.height, dst, enlarge);
    ScalePlane<2>(src + std::size_t{srcSize.width} * srcSize.height, srcSize.width, srcSize.height / 2,
                  dst + std::size_t{dstSize.width} * dstSize.height, enlarge);
}

void ConvertFrame(const std::uint8_t* src, PictureSize srcSize, std::uint8_t* scaled, std::uint8_t* dst,
                  const VideoFormat& format) noexcept {
    if (srcSize == format.size) {
        ConvertNv12(src, dst, format);
    } else if (format.pixels == PixelFormat::Nv12) {
        ScaleNv12(src, srcSize, dst);
    } else {
        ScaleNv12(src, srcSize, scaled);
        ConvertNv12(scaled, dst, format);
    }
}

} // namespace sample_camera
