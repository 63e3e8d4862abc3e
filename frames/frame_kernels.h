// The inner loops of frame conversion and of the snapshot, in two forms that give the same bytes: plain C++, and AVX2.
// One table of them is chosen when the program starts. Pure: no Windows calls.
#pragma once

#include <cstddef>
#include <cstdint>

namespace receiver {

// How a drawn row picks its samples from a source row, for FrameKernels::spread. Points into a RowPattern.
//
// For byte shuffles the drawn row is cut into groups of 32 bytes, each of two 16-byte lanes; the last group ends with
// the row and may overlap the one before. A lane takes its bytes from `windowCount` source windows of 16 bytes that
// follow each other from the lane's offset on. They lie inside the source row.
struct RowShuffle {
    const std::uint32_t* sampleOffsets; // of each drawn sample's first byte in the source row
    std::uint32_t sampleBytes; // 1, 2 or 4
    std::uint32_t byteCount; // of the drawn row
    std::uint32_t windowCount; // 1 to 4; 0: the samples lie too far apart, or the row is too short for groups
    bool joined; // two windows per lane, and lane 1 begins where the second window of lane 0 does
    std::uint32_t period; // group g has the controls of group g - period while g < regularGroups,
    std::int32_t periodStep; // and its offsets plus this
    std::uint32_t regularGroups;
    const std::uint32_t* laneOffsets; // [group][lane]
    const std::uint8_t* controls; // [group][window][32], for PSHUFB: 0x80 where the byte comes from another window
};

// How 4-byte pixels are to be read.
struct PixelOrder {
    bool redFirst = false; // else blue is
    bool mirrored = false; // the last pixel is drawn first
};

// No function reads or writes a byte outside the rows it is given. Any address will do, and any length that is not said
// to be even. Sources must not overlap what is drawn.
struct FrameKernels {
    const char* name;

    void (*copy)(const std::uint8_t* source, std::size_t byteCount, std::uint8_t* drawn);

    // Draws one row, and the same once more at `twin` unless that is null. `next` is the source row that will be read
    // some rows later.
    void (*spread)(const RowShuffle& row, const std::uint8_t* source, const std::uint8_t* next, std::uint8_t* drawn,
                   std::uint8_t* twin);

    // U,V pairs from a row of U and a row of V.
    void (*interleave)(const std::uint8_t* u, const std::uint8_t* v, std::uint32_t pairCount, std::uint8_t* drawn);

    // Luma of a row of 4-byte pixels, BT.601 limited range; mirrored: from the last pixel to the first. `next` as
    // above.
    void (*luma)(const std::uint8_t* pixels, const std::uint8_t* next, std::uint32_t pixelCount, PixelOrder order,
                 std::uint8_t* drawn);

    // U,V pairs of the pixels in a row of `pixelCount`: one pair for each or, with `halved`, for the first of every two
    // pixels in the order in which they are drawn. The count is even if halved; only then may the order be mirrored.
    void (*chroma)(const std::uint8_t* pixels, std::uint32_t pixelCount, bool halved, PixelOrder order,
                   std::uint8_t* drawn);

    // Draws `lineCount` source rows as columns of one or two bytes: sample y of the row at lines[x] comes to column x
    // of row y.
    void (*turnBytes)(const RowShuffle& row, const std::uint8_t* slot, const std::uint32_t* lines,
                      std::uint32_t lineCount, std::uint8_t* drawn, std::size_t drawnPitch);
    void (*turnPairs)(const RowShuffle& row, const std::uint8_t* slot, const std::uint32_t* lines,
                      std::uint32_t lineCount, std::uint8_t* drawn, std::size_t drawnPitch);

    // Two rows of NV12, one row of chroma, as two rows of 3-byte pixels, blue first. `width` is even.
    void (*blueGreenRed)(const std::uint8_t* luma, const std::uint8_t* chroma, std::uint32_t width,
                         std::uint8_t* pixels);
};

extern const FrameKernels ScalarKernels;
extern const FrameKernels Avx2Kernels; // only where Avx2Usable() says so

// What CPUID and XGETBV report about AVX2.
struct CpuReport {
    std::uint32_t highestLeaf = 0;
    std::uint32_t leaf1Ecx = 0;
    std::uint32_t leaf7Ebx = 0;
    std::uint64_t xcr0 = 0; // 0 without OSXSAVE
};
[[nodiscard]] CpuReport ReadCpuReport() noexcept;
// True when the processor has AVX2 and the operating system saves its registers.
[[nodiscard]] bool Avx2Usable(const CpuReport& report) noexcept;

// The fastest table that runs here.
[[nodiscard]] const FrameKernels& BestKernels() noexcept;

} // namespace receiver
