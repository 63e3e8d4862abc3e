// The line of figures below the live view: size, rate over the last two seconds, age of the newest frame, torn reads.
#pragma once

#include "examples/camera/frame_reader.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

namespace receiver {

class LiveFigures {
public:
    using Clock = std::chrono::steady_clock;

    void AddFrame(Clock::time_point now, std::uint64_t newAgeMs);
    [[nodiscard]] std::wstring Text(Clock::time_point now, const vistel::FrameInfo& frame, bool stale,
                                    std::uint64_t tornReads);

private:
    [[nodiscard]] double FramesPerSecond() const;

    std::deque<Clock::time_point> times; // of the frames of the last two seconds
    std::uint64_t ageMs = 0;
};

} // namespace receiver
