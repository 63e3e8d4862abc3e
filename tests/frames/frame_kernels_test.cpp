// Every table of kernels against the plain formulas, the choice between the tables, and deliberate faults that the
// checks must find.
#include "conversion_checks.h"
#include "frames/frame_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

namespace receiver {
namespace {

// A hundred thousand geometries, or so many as are checked in a similar time.
#if defined(__SANITIZE_ADDRESS__) || defined(_WIN32)
constexpr std::uint32_t GeometriesPerShard = 1250;
#else
constexpr std::uint32_t GeometriesPerShard = 12500;
#endif
constexpr std::uint32_t ShardCount = 8;

std::string NameOf(const FrameKernels* kernels) { return kernels->name; }

class FrameKernelsTable : public ::testing::TestWithParam<const FrameKernels*> {};

TEST_P(FrameKernelsTable, ConvertsEveryColourByTheFormulas) { EXPECT_EQ("", ColourDifference(*GetParam())); }

TEST_P(FrameKernelsTable, ShowsEveryYUVByTheFormulas) { EXPECT_EQ("", SnapshotDifference(*GetParam())); }

TEST_P(FrameKernelsTable, DrawsRowsOfAnyLengthInsideTheirMemory) {
    for (std::uint32_t count = 1; count <= 70; ++count) {
        ASSERT_EQ("", RowDifference(*GetParam(), count));
    }
    for (const std::uint32_t count : {255U, 404U, 606U, 720U, 959U, 1280U, 1920U}) {
        ASSERT_EQ("", RowDifference(*GetParam(), count));
    }
}

INSTANTIATE_TEST_SUITE_P(All, FrameKernelsTable, ::testing::ValuesIn(UsableKernels()),
                         [](const auto& run) { return NameOf(run.param); });

class FrameKernelsShard : public ::testing::TestWithParam<std::tuple<const FrameKernels*, std::uint32_t>> {};

TEST_P(FrameKernelsShard, ConvertsRandomGeometriesLikeTheReference) {
    const auto& [kernels, shard] = GetParam();
    EXPECT_EQ("", RandomGeometryDifference(*kernels, 1 + shard * GeometriesPerShard, GeometriesPerShard));
}

INSTANTIATE_TEST_SUITE_P(All, FrameKernelsShard,
                         ::testing::Combine(::testing::ValuesIn(UsableKernels()),
                                            ::testing::Range(std::uint32_t{0}, ShardCount)),
                         [](const auto& run) {
                             return NameOf(std::get<0>(run.param)) + "Part" + std::to_string(std::get<1>(run.param));
                         });

TEST(FrameKernels, UsesAvx2OnlyWhereProcessorAndSystemHaveIt) {
    constexpr std::uint32_t Osxsave = 1U << 27;
    constexpr std::uint32_t Avx = 1U << 28;
    constexpr std::uint32_t Avx2 = 1U << 5;
    const CpuReport usable{.highestLeaf = 7, .leaf1Ecx = Osxsave | Avx, .leaf7Ebx = Avx2, .xcr0 = 7};
    EXPECT_TRUE(Avx2Usable(usable));
    EXPECT_FALSE(Avx2Usable({}));
    CpuReport report = usable;
    report.highestLeaf = 6;
    EXPECT_FALSE(Avx2Usable(report));
    for (const std::uint32_t missing : {Osxsave, Avx}) {
        report = usable;
        report.leaf1Ecx &= ~missing;
        EXPECT_FALSE(Avx2Usable(report));
    }
    report = usable;
    report.leaf7Ebx = ~Avx2;
    EXPECT_FALSE(Avx2Usable(report));
    for (const std::uint64_t saved : {0U, 1U, 3U, 5U}) { // the system saves XMM, YMM or neither
        report = usable;
        report.xcr0 = saved;
        EXPECT_FALSE(Avx2Usable(report));
    }
}

TEST(FrameKernels, ChoosesTheLastUsableTable) { EXPECT_EQ(UsableKernels().back(), &BestKernels()); }

// The checks above are worth as much as the faults they find.
constexpr std::uint32_t GeometriesForAFault = 500;
const FrameKernels* sound = nullptr; // the table that the faulty kernels build on

class FrameKernelsFault : public ::testing::TestWithParam<const FrameKernels*> {
protected:
    FrameKernelsFault() { sound = GetParam(); }
    FrameKernels faulty = *GetParam();
};

TEST_P(FrameKernelsFault, OfOneInALumaConstantIsFound) {
    faulty.luma = [](const std::uint8_t* pixels, const std::uint8_t*, std::uint32_t count, PixelOrder order,
                     std::uint8_t* drawn) {
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::uint8_t* const pixel = pixels + 4 * (order.mirrored ? count - 1 - i : i);
            const int red = pixel[order.redFirst ? 0 : 2];
            const int blue = pixel[order.redFirst ? 2 : 0];
            drawn[i] = static_cast<std::uint8_t>(((66 * red + 129 * pixel[1] + 25 * blue + 127) >> 8) + 16);
        }
    };
    EXPECT_NE("", ColourDifference(faulty));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(FrameKernelsFault, OfOneColourIsFound) {
    faulty.chroma = [](const std::uint8_t* pixels, std::uint32_t count, bool halved, PixelOrder order,
                       std::uint8_t* drawn) {
        sound->chroma(pixels, count, halved, order, drawn);
        for (std::uint32_t i = 0; i < count && !halved && !order.mirrored; ++i) {
            const std::uint8_t* const pixel = pixels + std::size_t{4} * i;
            drawn[2 * i] ^= pixel[0] == 200 && pixel[1] == 100 && pixel[2] == 50 ? 1 : 0;
        }
    };
    EXPECT_NE("", ColourDifference(faulty));
}

TEST_P(FrameKernelsFault, OfOneInASnapshotConstantIsFound) {
    faulty.blueGreenRed = [](const std::uint8_t* luma, const std::uint8_t* chroma, std::uint32_t width,
                             std::uint8_t* pixels) {
        sound->blueGreenRed(luma, chroma, width, pixels);
        for (std::uint32_t x = 0; x < 2 * width; ++x) {
            const int sum = 298 * (luma[x] - 16) + 410 * (chroma[x % width | 1] - 128) + 128;
            pixels[3 * x + 2] = static_cast<std::uint8_t>(std::clamp(sum >> 8, 0, 255));
        }
    };
    EXPECT_NE("", SnapshotDifference(faulty));
}

TEST_P(FrameKernelsFault, OfALongCopyWithoutItsLastByteIsFound) {
    faulty.copy = [](const std::uint8_t* source, std::size_t byteCount, std::uint8_t* drawn) {
        sound->copy(source, byteCount < 65536 ? byteCount : byteCount - 1, drawn);
    };
    EXPECT_NE("", RowDifference(faulty, 35));
}

TEST_P(FrameKernelsFault, OfAMissingLastPairIsFound) {
    faulty.interleave = [](const std::uint8_t* u, const std::uint8_t* v, std::uint32_t count, std::uint8_t* drawn) {
        sound->interleave(u, v, count - 1, drawn);
    };
    EXPECT_NE("", RowDifference(faulty, 33));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(FrameKernelsFault, OfTwoExchangedRowsIsFound) {
    faulty.turnPairs = [](const RowShuffle& row, const std::uint8_t* slot, const std::uint32_t* lines,
                          std::uint32_t count, std::uint8_t* drawn, std::size_t pitch) {
        sound->turnPairs(row, slot, lines, count, drawn, pitch);
        if (row.byteCount >= 4) {
            std::swap_ranges(drawn, drawn + std::size_t{2} * count, drawn + pitch);
        }
    };
    EXPECT_NE("", RowDifference(faulty, 33));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(FrameKernelsFault, OfATwinLeftOutIsFound) {
    faulty.spread = [](const RowShuffle& row, const std::uint8_t* source, const std::uint8_t* next, std::uint8_t* drawn,
                       std::uint8_t*) { sound->spread(row, source, next, drawn, nullptr); };
    EXPECT_NE("", RowDifference(faulty, 33));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(FrameKernelsFault, OfAByteWrittenPastTheRowIsFound) {
    faulty.spread = [](const RowShuffle& row, const std::uint8_t* source, const std::uint8_t* next, std::uint8_t* drawn,
                       std::uint8_t* twin) {
        const std::uint8_t kept = drawn[row.byteCount - 1];
        sound->spread(row, source, next, drawn, twin);
        drawn[row.byteCount] = kept ^ 0xFFU;
    };
    EXPECT_NE("", RowDifference(faulty, 33));
}

// Every byte that is drawn is right; but the last window begins one byte late and ends one byte past the row.
TEST_P(FrameKernelsFault, OfAWindowOneBytePastTheRowIsFound) {
    faulty.spread = [](const RowShuffle& row, const std::uint8_t* source, const std::uint8_t* next, std::uint8_t* drawn,
                       std::uint8_t* twin) {
        if (row.windowCount == 0) { // no windows: one byte past the samples instead
            const std::uint32_t* const offsets = row.sampleOffsets;
            const std::uint32_t last = *std::max_element(offsets, offsets + row.byteCount / row.sampleBytes);
            const volatile std::uint8_t* const past = source + last + row.sampleBytes;
            (void)*past;
            return sound->spread(row, source, next, drawn, twin);
        }
        const std::uint32_t groupCount = (row.byteCount + 31) / 32;
        std::vector<std::uint32_t> offsets(row.laneOffsets, row.laneOffsets + std::size_t{2} * groupCount);
        for (std::uint32_t& offset : offsets) {
            ++offset;
        }
        RowShuffle late = row;
        late.laneOffsets = offsets.data();
        sound->spread(late, source, next, drawn, twin);
        sound->spread(row, source, next, drawn, twin);
    };
    EXPECT_DEATH_IF_SUPPORTED((void)RandomGeometryDifference(faulty, 1, GeometriesForAFault), "");
}

INSTANTIATE_TEST_SUITE_P(All, FrameKernelsFault, ::testing::ValuesIn(UsableKernels()),
                         [](const auto& run) { return NameOf(run.param); });

} // namespace
} // namespace receiver
