// A frame read from the shared frame file through the header for camera authors, kept until there is another whole one.
#pragma once

#include "examples/camera/frame_reader.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace receiver {

struct FrameCopy {
    vistel::FrameInfo info;
    std::vector<std::uint8_t> nv12;

    // Changes only with a new frame.
    [[nodiscard]] vistel::ReadResult ReadFrom(vistel::FrameReader& reader) {
        std::vector<std::uint8_t> copy;
        const vistel::ReadResult result = reader.Read(info, [&copy](std::uint32_t width, std::uint32_t height) {
            copy.resize(std::size_t{width} * height * 3 / 2);
            return vistel::Destination{copy.data(), width};
        });
        if (result == vistel::ReadResult::NewFrame) {
            nv12.swap(copy);
        }
        return result;
    }
};

} // namespace receiver
