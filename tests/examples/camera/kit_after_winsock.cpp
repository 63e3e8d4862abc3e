// Compiled, not run: the header for camera authors in a program with exceptions that includes winsock2.h before it.
#include <winsock2.h>

#include "examples/camera/frame_reader.h"

bool ReadsWithExceptions(vistel::FrameReader& reader, std::uint8_t* memory);
bool ReadsWithExceptions(vistel::FrameReader& reader, std::uint8_t* memory) {
    vistel::FrameInfo frame;
    return reader.Read(frame, [memory](std::uint32_t width, std::uint32_t) {
        return vistel::Destination{memory, width};
    }) == vistel::ReadResult::NewFrame;
}
