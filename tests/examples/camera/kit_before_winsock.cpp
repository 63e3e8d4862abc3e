// Compiled, not run: the header for camera authors in a program without exceptions that includes winsock2.h after it.
#include "examples/camera/frame_reader.h"

#include <winsock2.h>

bool ReadsWithoutExceptions(vistel::FrameReader& reader, std::uint8_t* memory);
bool ReadsWithoutExceptions(vistel::FrameReader& reader, std::uint8_t* memory) {
    vistel::FrameInfo frame;
    return reader.Read(frame, [memory](std::uint32_t width, std::uint32_t) {
        return vistel::Destination{memory, width};
    }) == vistel::ReadResult::NewFrame;
}
