// How every line of a picture picks its samples from its source row: the offsets, and the byte shuffles that do the
// same 32 bytes at a time. Pure: no Windows calls.
#pragma once

#include "frames/frame_kernels.h"

#include <cstdint>
#include <vector>

namespace receiver {

struct RowPattern {
    std::vector<std::uint32_t> offsets; // of each sample's first byte in the source row; set by the owner

    // Set by PreparePattern.
    bool contiguous = false; // the samples are those of the source row, in its order
    bool mirrored = false; // likewise, from its last to its first
    RowShuffle shuffle{}; // all but the pointers
    std::vector<std::uint32_t> laneOffsets;
    std::vector<std::uint8_t> controls;

    [[nodiscard]] RowShuffle Shuffle() const noexcept {
        RowShuffle result = shuffle;
        result.sampleOffsets = offsets.data();
        result.laneOffsets = laneOffsets.data();
        result.controls = controls.data();
        return result;
    }
};

// Derives everything else from pattern.offsets, which either never fall or never rise, for samples of 1, 2 or 4 bytes
// in a source row of `rowBytes`. Contiguous samples can do without shuffles if they are only copied.
void PreparePattern(std::uint32_t sampleBytes, std::uint32_t rowBytes, bool copiesContiguous, RowPattern& pattern);

} // namespace receiver
