// The time of a stream whose graph has no clock: it stands still while the stream is paused.
// Pure: time comes as an argument.
#pragma once

#include <cstdint>

namespace sample_camera {

class OwnTime {
public:
    // The moment of the stream's time 0, were there no pauses.
    [[nodiscard]] std::int64_t Run(std::int64_t now100ns) noexcept { return start100ns = now100ns - elapsed100ns; }
    void Pause(std::int64_t now100ns) noexcept { elapsed100ns = now100ns - start100ns; }

private:
    std::int64_t start100ns = 0;
    std::int64_t elapsed100ns = 0;
};

} // namespace sample_camera
