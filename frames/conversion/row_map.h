// Which sample of a source row each sample of a destination row takes: scaling, mirroring and plain copying are one
// map. Pure: no Windows calls.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace receiver {

// The two blocks of fields describe the same mapping; a kernel uses one of them. The pointers point into this object's
// storage.
//
// For byte shuffles the destination row is cut into groups of two 16-byte lanes; the last group ends with the row and
// may overlap the group before. A lane takes its bytes from `windowCount` consecutive 16-byte windows of the source
// row, the first of them at the lane's offset. All windows lie inside the source row.
struct RowMap {
    static constexpr std::uint32_t LaneBytes = 16;
    static constexpr std::uint32_t GroupBytes = 2 * LaneBytes;

    RowMap() = default;
    // Sample i takes source sample positions[i]. The positions never fall or never rise and are below `sourceSamples`.
    // A sample has 1, 2 or 4 bytes.
    RowMap(std::span<const std::uint32_t> positions, std::uint32_t sampleBytes, std::uint32_t sourceSamples);
    RowMap(const RowMap&) = delete;
    RowMap& operator=(const RowMap&) = delete;
    RowMap(RowMap&&) = default;
    RowMap& operator=(RowMap&&) = default;
    ~RowMap() = default;

    const std::uint32_t* sampleOffsets = nullptr; // of each sample's first byte in the source row
    std::uint32_t sampleBytes = 0;
    std::uint32_t byteCount = 0; // of the destination row
    bool identity = false; // the destination row equals the source row

    const std::uint32_t* laneOffsets = nullptr; // [group][lane], in the source row
    const std::uint8_t* controls = nullptr; // [group][window][32], for PSHUFB: 0x80 where another window has the byte
    std::uint32_t windowCount = 0; // 1, 2 or 4; 0: unusable, the row is too short or scaled down too much
    // Group g has the controls of group g - period while g < regularGroups, and its lane offsets plus periodStep.
    std::uint32_t period = 0;
    std::uint32_t regularGroups = 0;
    std::int32_t periodStep = 0;

private:
    void MakeShuffles(std::uint32_t sourceBytes);
    void FindPeriod() noexcept;

    std::vector<std::uint32_t> sampleOffsetStorage;
    std::vector<std::uint32_t> laneOffsetStorage;
    std::vector<std::uint8_t> controlStorage;
};

} // namespace receiver
