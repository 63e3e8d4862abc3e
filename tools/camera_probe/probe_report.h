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
    void AddTornRead() noexcept { ++tornReads_; }
    void SetRetries(std::uint64_t retries) noexcept { retries_ = retries; }

    [[nodiscard]] std::uint64_t FramesRead() const noexcept { return framesRead_; }
    [[nodiscard]] std::uint64_t TornReads() const noexcept { return tornReads_; }

    // Between the first and the last frame published while watching; 0 when there are fewer than two.
    [[nodiscard]] double FramesPerSecond() const noexcept;

    // One line. The ages are null when no frame was read.
    [[nodiscard]] std::string ToJson() const;

private:
    std::uint64_t framesRead_ = 0;
    std::uint64_t tornReads_ = 0;
    std::uint64_t retries_ = 0;
    std::uint32_t width_ = 0;
    std::uint32_t height_ = 0;
    std::uint64_t sequence_ = 0;
    std::uint64_t oldFrameAgeMs_ = 0;
    std::vector<std::uint64_t> agesMs_; // of the frames published while watching
    Clock::time_point firstTime_;
    Clock::time_point lastTime_;
};

} // namespace receiver
