// Tells whether there is a live picture.
#include <frame_reader.h>

#include <cstdio>

int main() {
    const vistel::UsageSignal usage;
    vistel::FrameReader reader;
    vistel::FrameInfo frame;
    (void)reader.Read(frame, [](std::uint32_t, std::uint32_t) { return vistel::Destination{nullptr, 0}; });
    usage.Signal();
    std::puts(vistel::Text(reader.State()));
}
