#include "sample_camera/frame_choice.h"

#include "sample_camera/video_format.h"

namespace sample_camera {

bool FrameChoice::IsTimeToLook(std::int64_t now100ns) const noexcept {
    return (live_ && interval100ns_ <= ShortestInterval100ns) || now100ns >= due100ns_;
}

Delivery FrameChoice::Choose(bool newFrame, bool live, std::int64_t now100ns) noexcept {
    live_ = live;
    const bool frame = newFrame && live;
    if (!frame && (live || now100ns < due100ns_)) {
        return Delivery::Nothing;
    }
    const bool atOnce = frame && interval100ns_ <= ShortestInterval100ns;
    const std::int64_t next100ns = due100ns_ + interval100ns_;
    due100ns_ = atOnce || next100ns <= now100ns ? now100ns + interval100ns_ : next100ns;
    return frame ? Delivery::Frame : Delivery::Card;
}

} // namespace sample_camera
