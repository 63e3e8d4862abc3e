// Every table of kernels against the plain formulas, the choice between the tables, and deliberate faults that the
// checks must find.
#include "conversion_checks.h"
#include "frames/frame_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
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

#ifdef __GNUC__
TEST(FrameKernels, ChoosesAvx2WhereTheCompilersOwnLookFindsIt) {
    EXPECT_EQ(__builtin_cpu_supports("avx2") ? &Avx2Kernels : &ScalarKernels, &BestKernels());
}
#endif

// The checks above are worth as much as the faults they find.
constexpr std::uint32_t GeometriesForAFault = 500;
const FrameKernels* sound = nullptr; // the table that the faulty kernels build on

class FrameKernelsFault : public ::testing::TestWithParam<const FrameKernels*> {
protected:
    FrameKernelsFault() { sound = GetParam(); }
    FrameKernels faulty = *GetParam();
};

TEST_P(FrameKernelsFault, OfOneInALumaConstantIsFound) {
    faulty.luma = [](const std::uint8_t* pixels, const std::uint8_t* next, std::uint32_t count, PixelOrder order,
                     std::uint8_t* drawn) {
        sound->luma(pixels, next, count, order, drawn);
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::uint8_t* const pixel = pixels + std::size_t{4} * (order.mirrored ? count - 1 - i : i);
            const int red = pixel[order.redFirst ? 0 : 2];
            const int blue = pixel[order.redFirst ? 2 : 0];
            const int sum = 66 * red + 129 * pixel[1] + 25 * blue + 128;
            drawn[i] = static_cast<std::uint8_t>(drawn[i] - (sum % 256 == 0 ? 1 : 0)); // as if 127 were added
        }
    };
    EXPECT_NE("", ColourDifference(faulty));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(FrameKernelsFault, OfOneColourIsFound) {
    faulty.chroma = [](const std::uint8_t* pixels, std::uint32_t count, bool halved, PixelOrder order,
                       std::uint8_t* drawn) {
        sound->chroma(pixels, count, halved, order, drawn);
        for (std::uint32_t i = 0; i < count && !halved; ++i) {
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

TEST_P(FrameKernelsFault, OfACopyWithoutItsLastByteIsFound) {
    faulty.copy = [](const std::uint8_t* source, std::size_t byteCount, std::uint8_t* drawn) {
        sound->copy(source, byteCount - 1, drawn);
    };
    EXPECT_NE("", RowDifference(faulty, 33));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
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

template <std::size_t SampleBytes>
void TurnAndExchangeTwoRows(const RowShuffle& row, const std::uint8_t* slot, const std::uint32_t* lines,
                            std::uint32_t count, std::uint8_t* drawn, std::size_t pitch) {
    (SampleBytes == 1 ? sound->turnBytes : sound->turnPairs)(row, slot, lines, count, drawn, pitch);
    if (row.byteCount >= 2 * SampleBytes) {
        std::swap_ranges(drawn, drawn + SampleBytes * count, drawn + pitch);
    }
}

TEST_P(FrameKernelsFault, OfTwoExchangedRowsOfBytesIsFound) {
    faulty.turnBytes = TurnAndExchangeTwoRows<1>;
    EXPECT_NE("", RowDifference(faulty, 33));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(FrameKernelsFault, OfTwoExchangedRowsOfPairsIsFound) {
    faulty.turnPairs = TurnAndExchangeTwoRows<2>;
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

// How a program ends that touches an untouchable page, and what it says then.
#ifdef _WIN32
bool EndedByAccess(int status) { return static_cast<unsigned>(status) == 0xC0000005; } // access violation
constexpr char AccessReport[] = "";
#elif defined(__SANITIZE_ADDRESS__)
bool EndedByAccess(int status) { return ::testing::ExitedWithCode(1)(status); }
constexpr char AccessReport[] = "AddressSanitizer: SEGV";
#else
bool EndedByAccess(int status) { return ::testing::KilledBySignal(SIGSEGV)(status); }
constexpr char AccessReport[] = "";
#endif

// Every byte that is drawn is right, here and below.
TEST_P(FrameKernelsFault, OfAByteReadPastTheRowIsFound) {
    faulty.spread = [](const RowShuffle& row, const std::uint8_t* source, const std::uint8_t* next, std::uint8_t* drawn,
                       std::uint8_t* twin) {
        const std::uint32_t* const offsets = row.sampleOffsets;
        const std::uint32_t last = *std::max_element(offsets, offsets + row.byteCount / row.sampleBytes);
        const volatile std::uint8_t* const past = source + last + row.sampleBytes;
        (void)*past;
        sound->spread(row, source, next, drawn, twin);
    };
    EXPECT_EXIT((void)RandomGeometryDifference(faulty, 1, GeometriesForAFault), EndedByAccess, AccessReport);
}

INSTANTIATE_TEST_SUITE_P(All, FrameKernelsFault, ::testing::ValuesIn(UsableKernels()),
                         [](const auto& run) { return NameOf(run.param); });

// Only this table reads windows: all of them one byte late, so that the last one ends one byte past the row.
TEST(FrameKernelsAvx2Fault, OfAWindowOneBytePastTheRowIsFound) {
    if (!Avx2Usable(ReadCpuReport())) {
        GTEST_SKIP() << "this processor has no AVX2";
    }
    FrameKernels faulty = Avx2Kernels;
    faulty.spread = [](const RowShuffle& row, const std::uint8_t* source, const std::uint8_t* next, std::uint8_t* drawn,
                       std::uint8_t* twin) {
        if (row.windowCount > 0) {
            const std::uint32_t groupCount = (row.byteCount + 31) / 32;
            std::vector<std::uint32_t> offsets(row.laneOffsets, row.laneOffsets + std::size_t{2} * groupCount);
            for (std::uint32_t& offset : offsets) {
                ++offset;
            }
            RowShuffle late = row;
            late.laneOffsets = offsets.data();
            Avx2Kernels.spread(late, source, next, drawn, twin);
        }
        Avx2Kernels.spread(row, source, next, drawn, twin);
    };
    EXPECT_EXIT((void)RandomGeometryDifference(faulty, 1, GeometriesForAFault), EndedByAccess, AccessReport);
}

} // namespace
} // namespace receiver
