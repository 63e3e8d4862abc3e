#include "frames/row_pattern.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace receiver {
namespace {

constexpr std::uint32_t GroupBytes = 32;
constexpr std::uint32_t LaneBytes = 16; // and those of a window
constexpr std::uint32_t LargestWindowCount = 4;
constexpr std::uint32_t LargestPeriod = 5; // finds 2:3, 3:4, 4:5 and the like

// True when the offsets run from `first` on by `step`, which may wrap round.
bool StepsBy(const std::vector<std::uint32_t>& offsets, std::uint32_t first, std::uint32_t step) noexcept {
    for (const std::uint32_t offset : offsets) {
        if (offset != first) {
            return false;
        }
        first += step;
    }
    return true;
}

// The lanes of all groups, by number: two for each group.
class Lanes {
public:
    Lanes(const RowPattern& pattern, std::uint32_t groupCount) noexcept
        : offsets_(pattern.offsets.data()), sampleBytes_(pattern.shuffle.sampleBytes),
          lastStart_(pattern.shuffle.byteCount - GroupBytes), count_(2 * groupCount) {}

    [[nodiscard]] std::uint32_t Count() const noexcept { return count_; }
    // The offsets of a lane's samples.
    [[nodiscard]] const std::uint32_t* Samples(std::uint32_t lane) const noexcept {
        const std::uint32_t start = std::min(lane / 2 * GroupBytes, lastStart_) + lane % 2 * LaneBytes;
        return offsets_ + start / sampleBytes_;
    }
    // The first and the last source byte of a lane.
    [[nodiscard]] std::pair<std::uint32_t, std::uint32_t> Extent(std::uint32_t lane) const noexcept {
        const std::uint32_t* const samples = Samples(lane);
        const auto [low, high] = std::minmax(samples[0], samples[LaneBytes / sampleBytes_ - 1]);
        return {low, high + sampleBytes_ - 1};
    }

private:
    const std::uint32_t* offsets_;
    std::uint32_t sampleBytes_;
    std::uint32_t lastStart_;
    std::uint32_t count_;
};

// True when each group fits two windows per lane of which the lanes share one.
bool LanesJoin(const Lanes& lanes, std::uint32_t rowBytes) noexcept {
    constexpr std::uint32_t JoinedBytes = 3 * LaneBytes;
    if (rowBytes < JoinedBytes) {
        return false;
    }
    for (std::uint32_t lane = 0; lane < lanes.Count(); lane += 2) {
        const auto [low0, high0] = lanes.Extent(lane);
        const auto [low1, high1] = lanes.Extent(lane + 1);
        const std::uint32_t base = std::min(low0, rowBytes - JoinedBytes);
        if (high0 >= base + 2 * LaneBytes || low1 < base + LaneBytes || high1 >= base + JoinedBytes) {
            return false;
        }
    }
    return true;
}

template <std::uint32_t SampleBytes>
void FillControls(const std::uint32_t* samples, std::uint32_t base, std::uint32_t windowCount,
                  std::uint8_t* controls) noexcept {
    for (std::uint32_t window = 0; window < windowCount; ++window) {
        for (std::uint32_t byte = 0; byte < LaneBytes; ++byte) {
            const std::uint32_t inWindow = samples[byte / SampleBytes] + byte % SampleBytes - base - window * LaneBytes;
            controls[byte] = static_cast<std::uint8_t>(inWindow < LaneBytes ? inWindow : 0x80);
        }
        controls += GroupBytes;
    }
}

void FillGroups(const Lanes& lanes, std::uint32_t rowBytes, RowPattern& pattern) {
    const RowShuffle& shuffle = pattern.shuffle;
    const std::uint32_t windowBytes = shuffle.windowCount * LaneBytes;
    const auto fillControls = shuffle.sampleBytes == 1   ? FillControls<1>
                              : shuffle.sampleBytes == 2 ? FillControls<2>
                                                         : FillControls<4>;
    pattern.laneOffsets.resize(lanes.Count());
    pattern.controls.resize(std::size_t{lanes.Count()} * windowBytes);
    for (std::uint32_t lane = 0; lane < lanes.Count(); ++lane) {
        std::uint32_t base = std::min(lanes.Extent(lane).first, rowBytes - windowBytes);
        if (shuffle.joined) {
            base = lane % 2 == 0 ? std::min(lanes.Extent(lane).first, rowBytes - windowBytes - LaneBytes)
                                 : pattern.laneOffsets[lane - 1] + LaneBytes;
        }
        pattern.laneOffsets[lane] = base;
        fillControls(lanes.Samples(lane), base, shuffle.windowCount,
                     pattern.controls.data() + std::size_t{2} * (lane / 2) * windowBytes +
                         std::size_t{LaneBytes} * (lane % 2));
    }
}

// The number of groups, from the first on, that repeat with this period.
std::size_t CountRegularGroups(const RowPattern& pattern, std::size_t period, std::size_t fullGroups) noexcept {
    const std::size_t controlBytes = std::size_t{pattern.shuffle.windowCount} * GroupBytes;
    const std::uint32_t* const offsets = pattern.laneOffsets.data();
    const std::uint8_t* const controls = pattern.controls.data();
    const std::uint32_t step = offsets[2 * period] - offsets[0];
    std::size_t group = period;
    while (group < fullGroups && offsets[2 * group] - offsets[2 * (group - period)] == step &&
           offsets[2 * group + 1] - offsets[2 * (group - period) + 1] == step &&
           std::memcmp(controls + group * controlBytes, controls + (group - period) * controlBytes, controlBytes) ==
               0) {
        ++group;
    }
    return group;
}

void FindPeriod(RowPattern& pattern) noexcept {
    RowShuffle& shuffle = pattern.shuffle;
    const std::uint32_t fullGroups = shuffle.byteCount / GroupBytes;
    for (std::uint32_t period = 1; period <= LargestPeriod && std::size_t{3} * period <= fullGroups; ++period) {
        const std::size_t regularGroups = CountRegularGroups(pattern, period, fullGroups);
        if (regularGroups * 4 >= std::size_t{3} * fullGroups) {
            shuffle.period = period;
            shuffle.periodStep =
                static_cast<std::int32_t>(pattern.laneOffsets[std::size_t{2} * period] - pattern.laneOffsets[0]);
            shuffle.regularGroups = static_cast<std::uint32_t>(regularGroups);
            return;
        }
    }
}

} // namespace

void PreparePattern(std::uint32_t sampleBytes, std::uint32_t rowBytes, bool copiesContiguous, RowPattern& pattern) {
    RowShuffle& shuffle = pattern.shuffle;
    shuffle = {};
    shuffle.sampleBytes = sampleBytes;
    shuffle.byteCount = static_cast<std::uint32_t>(pattern.offsets.size()) * sampleBytes;
    pattern.contiguous = StepsBy(pattern.offsets, 0, sampleBytes);
    pattern.mirrored =
        shuffle.byteCount == rowBytes && StepsBy(pattern.offsets, rowBytes - sampleBytes, 0 - sampleBytes);
    if (shuffle.byteCount < GroupBytes || (pattern.contiguous && copiesContiguous)) {
        return;
    }
    const Lanes lanes(pattern, (shuffle.byteCount + GroupBytes - 1) / GroupBytes);
    std::uint32_t windowCount = 0;
    for (std::uint32_t lane = 0; lane < lanes.Count(); ++lane) {
        const auto [low, high] = lanes.Extent(lane);
        windowCount = std::max(windowCount, (high - low) / LaneBytes + 1);
    }
    if (windowCount > LargestWindowCount || rowBytes < windowCount * LaneBytes) {
        return;
    }
    shuffle.windowCount = windowCount;
    shuffle.joined = windowCount == 2 && LanesJoin(lanes, rowBytes);
    FillGroups(lanes, rowBytes, pattern);
    FindPeriod(pattern);
}

} // namespace receiver
