// Holds a writer of the shared frame file against the rules of docs/frame-file.md, as far as a reader can see them.
// Pure: it is given what the file showed at one moment after another.
#pragma once

#include "examples/camera/frame_reader.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace receiver {

enum class WriterRule {
    Format, // magic and version
    Reserved, // reserved bytes are zero
    Geometry, // one of the two sizes, and stride and frame size that go with it
    Sequence, // grows, or begins again at 0
    Alternation, // each frame goes to the buffer that the one before it did not use
    Clock, // time stamps never go back and are never in the future
    Order, // nothing changes but between an odd and the next even sequence
};
inline constexpr std::size_t WriterRuleCount = 7;

[[nodiscard]] const char* Text(WriterRule rule) noexcept;

// What one look at the file has shown. The sequence in `header` was the same before and after all the rest was read.
struct WriterObservation {
    vistel::FileHeader header{};
    std::uint64_t nowMs = 0; // read after the header
    std::uint64_t activeBufferHash = 0; // of the frame in the buffer that the header names
};

class WriterCheck {
public:
    void Look(const WriterObservation& seen);

    struct Verdict {
        std::uint64_t looks = 0; // at which the rule could have been broken
        std::string evidence; // of the first time that it was; empty: it was kept
    };
    [[nodiscard]] const Verdict& VerdictOn(WriterRule rule) const noexcept {
        return verdicts[static_cast<std::size_t>(rule)];
    }
    // False when a rule was broken, and when no complete frame was seen.
    [[nodiscard]] bool Passed() const noexcept;

private:
    void Judge(WriterRule rule, bool kept, const WriterObservation& seen, const char* what);
    void JudgeChange(const WriterObservation& before, const WriterObservation& seen);

    std::array<Verdict, WriterRuleCount> verdicts;
    std::optional<WriterObservation> last; // the look before
    std::optional<WriterObservation> lastFrame; // the last look at a complete frame
};

} // namespace receiver
