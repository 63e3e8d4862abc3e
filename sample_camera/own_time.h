// The time of a stream whose graph has no clock: it stands still while the stream is paused.
// Pure: time comes as an argument.
#pragma once

#include <cstdint>

namespace sample_camera {

class OwnTime {
public:
    // The moment of the stream's time 0, were there no pauses.
    [[nodiscard]] std::int64_t Run(std::int64_t now100ns) noexcept { return start100ns_ = now100ns - elapsed100ns_; }
    void Pause(std::int64_t now100ns) noexcept { elapsed100ns_ = now100ns - start100ns_; }

private:
    std::int64_t start100ns_ = 0;
    std::int64_t elapsed100ns_ = 0;
};

} // namespace sample_camera
