// The shortest camera: prints a line for every live frame of the receiver, and one whenever the picture comes or goes.
//   cl /std:c++17 /EHsc print_frames.cpp        or        x86_64-w64-mingw32-g++ -std=c++17 print_frames.cpp
#include "frame_reader.h"

#include <cstdio>
#include <vector>

int main() {
    vistel::FrameReader reader;
    const vistel::UsageSignal usage;
    vistel::FrameInfo frame;
    std::vector<std::uint8_t> nv12(vistel::MaxFrameSize);
    vistel::PictureState shown = vistel::PictureState::Live;
    for (;;) {
        usage.Signal(); // as with every frame that an application asks a camera for
        const vistel::ReadResult result = reader.Read(frame, [&](std::uint32_t width, std::uint32_t) {
            return vistel::Destination{nv12.data(), width};
        });
        const vistel::PictureState state = reader.State();
        if (result == vistel::ReadResult::NewFrame && state == vistel::PictureState::Live) {
            std::printf("frame %llu: %u x %u, %llu ms old\n", static_cast<unsigned long long>(frame.sequence / 2),
                        frame.width, frame.height,
                        static_cast<unsigned long long>(GetTickCount64() - frame.timestampMs));
        }
        if (state != shown) {
            std::printf("%s (error %lu)\n", vistel::Text(state), reader.SystemError());
            shown = state;
        }
        std::fflush(stdout);
        Sleep(10);
    }
}
