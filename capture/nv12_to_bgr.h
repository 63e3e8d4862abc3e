// NV12 to 24-bit BGR, ITU-R BT.601 limited range, in integers. Pure: no Windows calls.
#pragma once

#include "frames/conversion/row_kernels.h"
#include "platform/hresult.h"

#include <cstdint>
#include <vector>

namespace receiver {

// Converts a tightly packed NV12 frame of `size` bytes into width * height * 3 bytes, blue first, rows top to bottom
// without padding. Each U,V pair colors its 2 x 2 block. Bytes of `frame` past the frame are ignored. E_INVALIDARG for
// a null pointer, a zero or odd width or height, or a size too small for them.
[[nodiscard]] HRESULT ConvertNv12ToBgr24(const std::uint8_t* frame, std::uint32_t size, std::uint32_t width,
                                         std::uint32_t height, std::vector<std::uint8_t>* outPixels,
                                         const RowKernels& kernels = BestKernels());

} // namespace receiver
