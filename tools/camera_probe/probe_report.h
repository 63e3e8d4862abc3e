// What a run of the camera probe read: counts, rate, ages, and their text as JSON.
#pragma once

#include "examples/camera/frame_reader.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace receiver {

class ProbeReport {
public:
    using Clock = std::chrono::steady_clock;

    // A frame that was published before the probe started is counted, but its age and time are not used: they do not
    // depend on the writer's speed. Its age is reported only if no other frame follows.
    void AddFrame(const vistel::FrameInfo& frame, std::uint64_t ageMs, bool publishedWhileWatching,
                  Clock::time_point now);
    void AddTornRead() noexcept { ++tornReads; }
    void SetRetries(std::uint64_t newRetries) noexcept { retries = newRetries; }

    [[nodiscard]] std::uint64_t FramesRead() const noexcept { return framesRead; }
    [[nodiscard]] std::uint64_t TornReads() const noexcept { return tornReads; }

    // Between the first and the last frame published while watching; 0 when there are fewer than two.
    [[nodiscard]] double FramesPerSecond() const noexcept;

    // One line. The ages are null when no frame was read.
    [[nodiscard]] std::string ToJson() const;

private:
    std::uint64_t framesRead = 0;
    std::uint64_t tornReads = 0;
    std::uint64_t retries = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint64_t sequence = 0;
    std::uint64_t oldFrameAgeMs = 0;
    std::vector<std::uint64_t> agesMs; // of the frames published while watching
    Clock::time_point firstTime;
    Clock::time_point lastTime;
};

} // namespace receiver
