// Layout of the shared frame file and the publishing of one frame into it, over plain memory.
// Pure: frames/shared_frame_file.cpp opens and maps the real file. All fields are little-endian.
//
// A reader reads `sequence`, retries while it is odd, copies the buffer that `activeBuffer` names, and accepts the copy
// when `sequence` has not changed.
#pragma once

#include "app/quality.h"
#include "frames/nv12_frame.h"

#include <cstddef>
#include <cstdint>

namespace receiver {

// Bytes of the largest frame.
inline constexpr std::uint32_t MaxFrameSize = Nv12Size(LargestQuality.width, LargestQuality.height);
inline constexpr std::uint32_t FrameFileMagic = 0x4C545356; // the bytes "VSTL"
inline constexpr std::uint32_t FrameFileVersion = 2;

struct FrameFileHeader {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t width; // pixels; width and height are those of a quality
    std::uint32_t height;
    std::uint32_t stride; // bytes per luma row; equals width
    std::uint32_t frameSize; // bytes of one NV12 frame
    std::uint64_t sequence; // odd while a frame is being written
    std::uint32_t activeBuffer; // buffer that holds the newest complete frame
    std::uint32_t reserved0;
    std::uint64_t timestamp; // milliseconds since system start when the newest frame was completed
    std::uint64_t reserved1[2];
};
static_assert(sizeof(FrameFileHeader) == 64);
static_assert(offsetof(FrameFileHeader, frameSize) == 20 && offsetof(FrameFileHeader, sequence) == 24);
static_assert(offsetof(FrameFileHeader, activeBuffer) == 32 && offsetof(FrameFileHeader, timestamp) == 40);

struct FrameFileLayout {
    FrameFileHeader header;
    std::uint8_t buffers[2][MaxFrameSize]; // NV12, the first frameSize bytes of each
};
static_assert(sizeof(FrameFileLayout) == sizeof(FrameFileHeader) + 2 * std::size_t{MaxFrameSize});

[[nodiscard]] bool IsHeaderValid(const FrameFileHeader& header) noexcept;

// Zeroes sequence, timestamp, index and both buffers and describes frames of the default quality.
void ResetFrameFile(FrameFileLayout& file) noexcept;

// First half of publishing: makes the sequence odd, stores the geometry and returns the inactive buffer, to be written.
// A sequence that is odd already, because its writer ended while writing, becomes the next odd number.
[[nodiscard]] std::uint8_t* BeginFrame(FrameFileLayout& file, std::uint32_t width, std::uint32_t height) noexcept;

// Second half, after the frame has been written to `buffer`: makes that the active one, stores the time stamp and makes
// the sequence even.
void CompleteFrame(FrameFileLayout& file, const std::uint8_t* buffer, std::uint64_t timestampMs) noexcept;

} // namespace receiver
