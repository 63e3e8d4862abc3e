#include "capture/nv12_to_bgr.h"

#include <algorithm>
#include <cstddef>

namespace receiver {
namespace {

std::uint8_t ClampToByte(int value) noexcept { return static_cast<std::uint8_t>(std::clamp(value, 0, 255)); }

} // namespace

HRESULT ConvertNv12ToBgr24(const std::uint8_t* frame, std::uint32_t size, std::uint32_t width, std::uint32_t height,
                           std::vector<std::uint8_t>* outPixels) {
    if (frame == nullptr || outPixels == nullptr || width == 0 || height == 0 || width % 2 != 0 || height % 2 != 0 ||
        size < static_cast<std::uint64_t>(width) * height * 3 / 2) {
        return E_INVALIDARG;
    }
    const std::size_t stride = width;
    const std::uint8_t* const chromaPlane = frame + stride * height;
    outPixels->resize(stride * height * 3);
    std::uint8_t* pixel = outPixels->data();
    for (std::size_t y = 0; y < height; ++y) {
        const std::uint8_t* const luma = frame + y * stride;
        const std::uint8_t* const chroma = chromaPlane + y / 2 * stride;
        for (std::size_t x = 0; x < width; ++x) {
            const int u = chroma[x & ~std::size_t{1}] - 128;
            const int v = chroma[x | 1] - 128;
            const int c = (luma[x] - 16) * 298;
            pixel[0] = ClampToByte((c + 516 * u + 128) >> 8);
            pixel[1] = ClampToByte((c - 100 * u - 208 * v + 128) >> 8);
            pixel[2] = ClampToByte((c + 409 * v + 128) >> 8);
            pixel += 3;
        }
    }
    return S_OK;
}

} // namespace receiver
