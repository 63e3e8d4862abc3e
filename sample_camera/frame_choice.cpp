#include "sample_camera/frame_choice.h"

#include "sample_camera/video_format.h"

namespace sample_camera {

bool FrameChoice::IsTimeToLook(std::int64_t now100ns) const noexcept {
    return (live && interval100ns <= ShortestInterval100ns) || now100ns >= due100ns;
}

Delivery FrameChoice::Choose(bool newFrame, bool isLive, std::int64_t now100ns) noexcept {
    live = isLive;
    const bool frame = newFrame && isLive;
    if (!frame && (isLive || now100ns < due100ns)) {
        return Delivery::Nothing;
    }
    const bool atOnce = frame && interval100ns <= ShortestInterval100ns;
    const std::int64_t next100ns = due100ns + interval100ns;
    due100ns = atOnce || next100ns <= now100ns ? now100ns + interval100ns : next100ns;
    return frame ? Delivery::Frame : Delivery::Card;
}

} // namespace sample_camera
