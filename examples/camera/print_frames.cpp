// The shortest camera: prints a line for every live frame of the receiver, and one when there is no picture.
//   cl /std:c++17 /EHsc print_frames.cpp        or        x86_64-w64-mingw32-g++ -std=c++17 print_frames.cpp
#include "frame_reader.h"

#include <cstdio>
#include <cstdlib>

int main() {
    const wchar_t* const programData = _wgetenv(L"ProgramData");
    vistel::FrameReader reader(std::wstring(programData != nullptr ? programData : L"C:\\ProgramData") +
                               L"\\Vistel\\frame-buffer.bin");
    const vistel::UsageSignal usage;
    vistel::Frame frame;
    bool live = true;
    for (;;) {
        usage.Signal(); // as with every frame that an application asks a camera for
        if (reader.ReadNewFrame(frame) == vistel::ReadResult::NewFrame && !vistel::IsStale(frame)) {
            std::printf("frame %llu: %u x %u, %llu ms old\n", static_cast<unsigned long long>(frame.sequence / 2),
                        frame.width, frame.height,
                        static_cast<unsigned long long>(GetTickCount64() - frame.timestampMs));
        }
        if (live == vistel::IsStale(frame)) {
            live = !live;
            std::puts(live ? "the picture is live" : "no picture: the receiver is not running, or its page sends none");
        }
        std::fflush(stdout);
        Sleep(10);
    }
}
