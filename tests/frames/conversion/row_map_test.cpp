// RowMap: the samples that it names, and the byte shuffles that say the same.
#include "frames/conversion/row_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace receiver {
namespace {

std::vector<std::uint32_t> Scaled(std::uint32_t sourceSamples, std::uint32_t samples, bool reversed = false) {
    std::vector<std::uint32_t> positions(samples);
    for (std::uint32_t i = 0; i < samples; ++i) {
        const std::uint32_t position = i * sourceSamples / samples;
        positions[i] = reversed ? sourceSamples - 1 - position : position;
    }
    return positions;
}

// The source byte that the shuffles bring to each destination byte.
std::vector<std::uint32_t> ShuffledBytes(const RowMap& map) {
    std::vector<std::uint32_t> bytes(map.byteCount, ~0U);
    const std::uint32_t groupCount = (map.byteCount + RowMap::GroupBytes - 1) / RowMap::GroupBytes;
    for (std::uint32_t group = 0; group < groupCount; ++group) {
        const std::uint32_t start = std::min(group * RowMap::GroupBytes, map.byteCount - RowMap::GroupBytes);
        const bool regular = group >= map.period && group < map.regularGroups;
        const std::uint32_t phase = regular ? group % map.period : group;
        const auto steps = static_cast<std::int32_t>(regular ? group / map.period : 0);
        for (std::uint32_t to = 0; to < RowMap::GroupBytes; ++to) {
            const std::uint32_t laneOffset = map.laneOffsets[2 * phase + to / RowMap::LaneBytes] +
                                             static_cast<std::uint32_t>(steps * map.periodStep);
            for (std::uint32_t window = 0; window < map.windowCount; ++window) {
                const std::uint8_t control =
                    map.controls[(std::size_t{phase} * map.windowCount + window) * RowMap::GroupBytes + to];
                if (control < RowMap::LaneBytes) {
                    bytes[start + to] = laneOffset + window * RowMap::LaneBytes + control;
                }
            }
        }
    }
    return bytes;
}

TEST(RowMap, ShufflesTheSamplesThatItNames) {
    for (const std::uint32_t sampleBytes : {1U, 2U, 4U}) {
        for (const std::uint32_t samples : {32U, 33U, 64U, 404U, 606U, 640U, 1280U, 1920U}) {
            for (const std::uint32_t ratio : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U}) { // quarters
                for (const bool reversed : {false, true}) {
                    const std::uint32_t sourceSamples = std::max(samples * ratio / 4, 64U);
                    const std::vector<std::uint32_t> positions = Scaled(sourceSamples, samples, reversed);
                    const RowMap map(positions, sampleBytes, sourceSamples);
                    ASSERT_NE(0U, map.windowCount) << samples << " of " << sourceSamples;
                    const std::vector<std::uint32_t> bytes = ShuffledBytes(map);
                    for (std::uint32_t i = 0; i < map.byteCount; ++i) {
                        ASSERT_EQ(positions[i / sampleBytes] * sampleBytes + i % sampleBytes, bytes[i])
                            << "byte " << i << ", " << samples << " samples of " << sourceSamples;
                    }
                }
            }
        }
    }
}

TEST(RowMap, IsAnIdentityOnlyForAllSamplesInOrder) {
    EXPECT_TRUE(RowMap(Scaled(64, 64), 1, 64).identity);
    EXPECT_TRUE(RowMap(Scaled(2, 2), 2, 2).identity);
    EXPECT_FALSE(RowMap(Scaled(64, 64), 1, 66).identity); // the beginning of a longer row
    EXPECT_FALSE(RowMap(Scaled(64, 64, true), 1, 64).identity);
    EXPECT_FALSE(RowMap(Scaled(66, 64), 1, 66).identity);
}

TEST(RowMap, DoesWithoutShufflesForShortRowsAndLargeRatios) {
    EXPECT_EQ(0U, RowMap(Scaled(31, 31), 1, 31).windowCount);
    EXPECT_EQ(1U, RowMap(Scaled(32, 32), 1, 32).windowCount);
    EXPECT_EQ(0U, RowMap(Scaled(8, 64), 1, 8).windowCount); // a source row shorter than a window
    EXPECT_EQ(4U, RowMap(Scaled(256, 64), 1, 256).windowCount);
    EXPECT_EQ(0U, RowMap(Scaled(320, 64), 1, 320).windowCount);
}

TEST(RowMap, CanBeMoved) {
    RowMap map(Scaled(1920, 1280), 1, 1920);
    const std::vector<std::uint32_t> bytes = ShuffledBytes(map);
    const RowMap moved = std::move(map);
    EXPECT_EQ(bytes, ShuffledBytes(moved));
    EXPECT_EQ(3U, moved.sampleOffsets[2]);
}

} // namespace
} // namespace receiver
