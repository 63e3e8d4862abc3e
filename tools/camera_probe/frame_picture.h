// A frame of the shared frame file as a PNG picture, in the colours that a camera application shows.
#pragma once

#include "tools/camera_probe/frame_reader.h"

#include <windows.h>

#include <string>

namespace receiver {

// Overwrites `path`. A frame without pixels gives a black picture of 1280 x 720. COM must be initialised.
[[nodiscard]] HRESULT WriteFramePicture(const vistel::Frame& frame, const std::wstring& path);

} // namespace receiver
