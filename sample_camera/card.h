// The card that is shown instead of a picture: light text on dark gray that says what is missing.
// Pure: no Windows calls.
#pragma once

#include "sample_camera/video_format.h"

#include <cstdint>
#include <string_view>

namespace sample_camera {

// Fills an NV12 picture. The text is broken at blanks and centered; letters, digits, blanks, commas and colons are
// drawn, all others are left out. Text beyond the last line that fits is cut off.
void DrawCard(std::string_view text, std::uint8_t* nv12, PictureSize size) noexcept;

} // namespace sample_camera
