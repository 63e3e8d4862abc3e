// Decides what the sample camera delivers next: a new frame at once, the "no picture" card at the application's rate
// while there is no live picture, or nothing.
// Pure: time comes as an argument.
#pragma once

#include <cstdint>

namespace sample_camera {

enum class Delivery { Nothing, Frame, Card };

class FrameChoice {
public:
    // `wantedInterval100ns` is what the application has asked for. Frames are delivered as they come when that is the
    // shortest one; a longer one makes a schedule.
    explicit FrameChoice(std::int64_t wantedInterval100ns) noexcept : interval100ns(wantedInterval100ns) {}

    // Whether to look for a new frame now. Without a live picture only as often as the card is delivered.
    [[nodiscard]] bool IsTimeToLook(std::int64_t now100ns) const noexcept;

    // What follows from a look: whether there is a new frame, and whether the newest one is live.
    [[nodiscard]] Delivery Choose(bool newFrame, bool isLive, std::int64_t now100ns) noexcept;

private:
    std::int64_t interval100ns;
    std::int64_t due100ns = 0;
    bool live = true;
};

} // namespace sample_camera
