#include "tools/camera_probe/writer_check.h"

#include <algorithm>

namespace receiver {
namespace {

bool HasGeometry(const vistel::FileHeader& header) noexcept {
    const bool known =
        (header.width == 1280 && header.height == 720) || (header.width == 1920 && header.height == 1080);
    return known && header.stride == header.width && header.frameSize == header.width * header.height * 3 / 2;
}

bool IsSame(const WriterObservation& first, const WriterObservation& second) noexcept {
    const vistel::FileHeader& a = first.header;
    const vistel::FileHeader& b = second.header;
    return a.width == b.width && a.height == b.height && a.stride == b.stride && a.frameSize == b.frameSize &&
           a.activeBuffer == b.activeBuffer && a.timestamp == b.timestamp &&
           first.activeBufferHash == second.activeBufferHash;
}

} // namespace

const char* Text(WriterRule rule) noexcept {
    constexpr const char* Texts[WriterRuleCount] = {
        "magic and version",
        "reserved bytes are zero",
        "width, height, stride and frame size",
        "the sequence grows or begins again at 0",
        "frames alternate between the buffers",
        "time stamps rise and are not in the future",
        "nothing changes under an even sequence",
    };
    return Texts[static_cast<std::size_t>(rule)];
}

void WriterCheck::Look(const WriterObservation& seen) {
    const vistel::FileHeader& header = seen.header;
    const bool complete = header.sequence % 2 == 0;
    Judge(WriterRule::Format,
          header.magic == vistel::FileHeader::Magic && header.version == vistel::FileHeader::Version, seen,
          "another magic or version");
    Judge(WriterRule::Reserved, header.reserved0 == 0 && header.reserved1[0] == 0 && header.reserved1[1] == 0, seen,
          "a reserved byte is not zero");
    if (complete) {
        Judge(WriterRule::Geometry, HasGeometry(header), seen, "sizes that do not go together");
    }
    if (last) {
        JudgeChange(*last, seen);
    }
    last = seen;
    if (complete && header.sequence != 0) {
        Judge(WriterRule::Clock, header.timestamp <= seen.nowMs, seen, "a time stamp in the future");
        lastFrame = seen;
    } else if (header.sequence == 0) {
        lastFrame.reset();
    }
}

void WriterCheck::JudgeChange(const WriterObservation& before, const WriterObservation& seen) {
    const std::uint64_t old = before.header.sequence;
    const std::uint64_t now = seen.header.sequence;
    if (now == old) {
        if (now % 2 == 0 && now != 0) { // at 0 the writer may just bring an old header up to date
            Judge(WriterRule::Order, IsSame(before, seen), seen, "header or frame changed without the sequence");
        }
        return;
    }
    Judge(WriterRule::Sequence, now > old || now == 0, seen, "a smaller sequence than before");
    if (now % 2 != 0 || now < old || !lastFrame) {
        return;
    }
    // A step of two is one frame; a longer one may hold a frame that was never completed.
    if (now - lastFrame->header.sequence == 2) {
        const bool switched = (lastFrame->header.activeBuffer == 0) != (seen.header.activeBuffer == 0);
        Judge(WriterRule::Alternation, switched, seen, "the same buffer twice");
    }
    Judge(WriterRule::Clock, seen.header.timestamp >= lastFrame->header.timestamp, seen,
          "an earlier time stamp than that of the frame before");
}

void WriterCheck::Judge(WriterRule rule, bool kept, const WriterObservation& seen, const char* what) {
    Verdict& verdict = verdicts[static_cast<std::size_t>(rule)];
    ++verdict.looks;
    if (!kept && verdict.evidence.empty()) {
        verdict.evidence = std::string(what) + ", at sequence " + std::to_string(seen.header.sequence);
    }
}

bool WriterCheck::Passed() const noexcept {
    return VerdictOn(WriterRule::Clock).looks > 0 &&
           std::all_of(verdicts.begin(), verdicts.end(),
                       [](const Verdict& verdict) { return verdict.evidence.empty(); });
}

} // namespace receiver
