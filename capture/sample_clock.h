// Presentation times of recorded frames, in 100 ns units since the recording started. Pure: the caller passes the time.
#pragma once

#include <cstdint>

namespace receiver {

inline constexpr std::int64_t NoSampleYet = -1;

// Time of a frame that arrives at `nowMs` in a recording that began at `startMs`: the time elapsed, or 100 ns after
// the last accepted sample when the clock has not advanced or has gone back. Strictly increasing.
[[nodiscard]] constexpr std::int64_t NextSampleTime(std::uint64_t startMs, std::uint64_t nowMs,
                                                    std::int64_t lastSampleTime) noexcept {
    const auto elapsed = static_cast<std::int64_t>((nowMs - startMs) * 10'000);
    return elapsed > lastSampleTime ? elapsed : lastSampleTime + 1;
}

} // namespace receiver
