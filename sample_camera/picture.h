// Turns an NV12 picture of one of the two sizes into the format and size that an application has chosen.
// Pure: no Windows calls.
#pragma once

#include "sample_camera/video_format.h"

#include <cstdint>

namespace sample_camera {

// `dst` has room for ImageBytes(format); the size stays. Rows have no padding in either picture.
void ConvertNv12(const std::uint8_t* src, std::uint8_t* dst, const VideoFormat& format) noexcept;

// Bilinear, from either size to the other.
void ScaleNv12(const std::uint8_t* src, PictureSize srcSize, std::uint8_t* dst) noexcept;

// Both, as far as they are necessary. `scaled` has room for an NV12 picture of the format's size.
void ConvertFrame(const std::uint8_t* src, PictureSize srcSize, std::uint8_t* scaled, std::uint8_t* dst,
                  const VideoFormat& format) noexcept;

} // namespace sample_camera
