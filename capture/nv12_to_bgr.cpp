#include "capture/nv12_to_bgr.h"

#include <cstddef>

namespace receiver {

HRESULT ConvertNv12ToBgr24(const std::uint8_t* frame, std::uint32_t size, std::uint32_t width, std::uint32_t height,
                           std::vector<std::uint8_t>* outPixels, const RowKernels& kernels) {
    if (frame == nullptr || outPixels == nullptr || width == 0 || height == 0 || width % 2 != 0 || height % 2 != 0 ||
        size < static_cast<std::uint64_t>(width) * height * 3 / 2) {
        return E_INVALIDARG;
    }
    const std::size_t stride = width;
    const std::uint8_t* const uvPlane = frame + stride * height;
    outPixels->resize(stride * height * 3);
    for (std::size_t y = 0; y < height; y += 2) {
        kernels.nv12ToBgr24Rows(frame + y * stride, uvPlane + y / 2 * stride, outPixels->data() + y * stride * 3,
                                width);
    }
    return S_OK;
}

} // namespace receiver
