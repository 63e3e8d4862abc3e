#include "frames/conversion/row_map.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace receiver {
namespace {

constexpr std::uint32_t MaxWindowCount = 4;
constexpr std::uint32_t MaxPeriod = 5; // in groups; enough for the ratios 2:3, 3:4 and 4:5
constexpr std::uint8_t NoByte = 0x80; // a control that gives 0

} // namespace

RowMap::RowMap(std::span<const std::uint32_t> positions, std::uint32_t bytesPerSample, std::uint32_t sourceSamples)
    : sampleBytes(bytesPerSample), byteCount(static_cast<std::uint32_t>(positions.size()) * bytesPerSample),
      identity(positions.size() == sourceSamples) {
    sampleOffsetStorage.reserve(positions.size());
    for (const std::uint32_t position : positions) {
        identity = identity && position == sampleOffsetStorage.size();
        sampleOffsetStorage.push_back(position * sampleBytes);
    }
    sampleOffsets = sampleOffsetStorage.data();
    if (byteCount >= GroupBytes) {
        MakeShuffles(sourceSamples * sampleBytes);
    }
}

void RowMap::MakeShuffles(std::uint32_t sourceBytes) {
    const std::uint32_t laneCount = (byteCount + GroupBytes - 1) / GroupBytes * 2;
    const auto samplesOf = [&](std::uint32_t lane) {
        const std::uint32_t start = std::min(lane / 2 * GroupBytes, byteCount - GroupBytes) + lane % 2 * LaneBytes;
        return std::span(sampleOffsets + start / sampleBytes, LaneBytes / sampleBytes);
    };
    std::uint32_t windows = 1;
    laneOffsetStorage.resize(laneCount);
    for (std::uint32_t lane = 0; lane < laneCount; ++lane) {
        // The positions only rise or only fall: the first and the last sample have a lane's lowest and highest offset.
        const auto [low, high] = std::minmax(samplesOf(lane).front(), samplesOf(lane).back());
        laneOffsetStorage[lane] = low;
        windows = std::max(windows, (high - low + sampleBytes - 1) / LaneBytes + 1);
    }
    windows = windows == 3 ? 4 : windows; // Kernels exist for 1, 2 and 4.
    if (windows > MaxWindowCount || windows * LaneBytes > sourceBytes) {
        return;
    }
    windowCount = windows;
    controlStorage.resize(std::size_t{laneCount} * windows * LaneBytes, NoByte);
    for (std::uint32_t lane = 0; lane < laneCount; ++lane) {
        std::uint32_t& laneOffset = laneOffsetStorage[lane];
        laneOffset = std::min(laneOffset, sourceBytes - windows * LaneBytes);
        std::uint8_t* const laneControls =
            controlStorage.data() + std::size_t{lane / 2} * windows * GroupBytes + std::size_t{lane % 2} * LaneBytes;
        std::uint32_t to = 0;
        for (const std::uint32_t sampleOffset : samplesOf(lane)) {
            for (std::uint32_t byte = 0; byte < sampleBytes; ++byte, ++to) {
                const std::uint32_t from = sampleOffset + byte - laneOffset;
                laneControls[from / LaneBytes * GroupBytes + to] = static_cast<std::uint8_t>(from % LaneBytes);
            }
        }
    }
    laneOffsets = laneOffsetStorage.data();
    controls = controlStorage.data();
    FindPeriod();
}

// Finds the smallest period of the controls, so that a kernel keeps them in registers: a fifth less time for mirrored
// rows (with and without it in one run).
void RowMap::FindPeriod() noexcept {
    const std::size_t controlBytes = std::size_t{windowCount} * GroupBytes;
    const std::uint32_t fullGroups = byteCount / GroupBytes;
    for (std::uint32_t tried = 1; tried <= MaxPeriod && 3 * tried <= fullGroups; ++tried) {
        const std::uint32_t step = laneOffsets[2 * std::size_t{tried}] - laneOffsets[0]; // may be negative, modulo 2^32
        const auto repeats = [&](std::uint32_t group) {
            const std::uint32_t* const lanes = laneOffsets + 2 * std::size_t{group};
            const std::uint8_t* const groupControls = controls + group * controlBytes;
            return lanes[0] - lanes[-2 * std::ptrdiff_t{tried}] == step &&
                   lanes[1] - lanes[1 - 2 * std::ptrdiff_t{tried}] == step &&
                   std::memcmp(groupControls, groupControls - tried * controlBytes, controlBytes) == 0;
        };
        std::uint32_t group = tried;
        while (group < fullGroups && repeats(group)) {
            ++group;
        }
        if (group * 4 >= fullGroups * 3) { // at least three quarters of the groups
            period = tried;
            regularGroups = group;
            periodStep = static_cast<std::int32_t>(step);
            return;
        }
    }
}

} // namespace receiver
