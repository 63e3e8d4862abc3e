// Publishing pattern frames into the shared frame file on disk.
#pragma once

#include "frames/shared_frame_file.h"
#include "tests/frames/frame_pattern.h"

#include <cstdint>
#include <vector>

namespace receiver {

[[nodiscard]] inline HRESULT PublishPattern(SharedFrameFile& file, std::uint32_t number) {
    const PatternSize size = SizeOfPattern(number);
    static std::vector<std::uint8_t> frame(MaxFrameSize); // static: the allocation costs more than filling it
    FillPattern(frame.data(), size.Bytes(), number);
    return file.PublishFrame(frame.data(), size.Bytes(), size.width, size.height);
}

} // namespace receiver
