// Converts a frame of the shared frame file to RGB, as a camera application does, and writes pictures as PNG files.
#pragma once

#include "examples/camera/frame_reader.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace receiver {

struct Frame {
    vistel::FrameInfo info;
    std::vector<std::uint8_t> nv12; // no padding between rows; empty: no frame
};

struct Picture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> bgr; // three bytes per pixel, no padding between rows
};

// A frame without pixels gives a black picture of 1280 x 720.
[[nodiscard]] Picture ToPicture(const Frame& frame);

// Overwrites `path`. COM must be initialized.
[[nodiscard]] HRESULT WritePng(Picture& picture, const std::wstring& path);

} // namespace receiver
