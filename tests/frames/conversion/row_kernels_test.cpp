// Every table of kernels against the plain formulas, the choice between the tables, and deliberate faults that the
// checks must find.
#include "conversion_checks.h"
#include "frames/conversion/row_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <fstream>
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

std::string NameOf(const RowKernels* kernels) { return kernels->name; }

class RowKernelsTable : public ::testing::TestWithParam<const RowKernels*> {};

TEST_P(RowKernelsTable, ConvertsEveryColorByTheFormulas) { EXPECT_EQ("", ColorDifference(*GetParam())); }

TEST_P(RowKernelsTable, ShowsEveryYUVByTheFormulas) { EXPECT_EQ("", SnapshotDifference(*GetParam())); }

TEST_P(RowKernelsTable, WritesRowsOfAnyLengthInsideTheirMemory) {
    for (std::uint32_t count = 1; count <= 70; ++count) {
        ASSERT_EQ("", RowDifference(*GetParam(), count));
    }
    for (const std::uint32_t count : {255U, 404U, 606U, 720U, 959U, 1280U, 1920U}) {
        ASSERT_EQ("", RowDifference(*GetParam(), count));
    }
}

INSTANTIATE_TEST_SUITE_P(All, RowKernelsTable, ::testing::ValuesIn(UsableKernels()),
                         [](const auto& run) { return NameOf(run.param); });

class RowKernelsShard : public ::testing::TestWithParam<std::tuple<const RowKernels*, std::uint32_t>> {};

TEST_P(RowKernelsShard, ConvertsRandomGeometriesLikeTheReference) {
    const auto& [kernels, shard] = GetParam();
    EXPECT_EQ("", RandomGeometryDifference(*kernels, 1 + shard * GeometriesPerShard, GeometriesPerShard));
}

INSTANTIATE_TEST_SUITE_P(All, RowKernelsShard,
                         ::testing::Combine(::testing::ValuesIn(UsableKernels()),
                                            ::testing::Range(std::uint32_t{0}, ShardCount)),
                         [](const auto& run) {
                             return NameOf(std::get<0>(run.param)) + "Part" + std::to_string(std::get<1>(run.param));
                         });

TEST(RowKernels, ChoosesAvx2WhereItCanBeUsed) {
    EXPECT_EQ(Avx2Usable() ? &Avx2Kernels : &ScalarKernels, &BestKernels());
}

#ifdef __linux__
TEST(RowKernels, FindsAvx2WhereTheSystemReportsIt) {
    std::ifstream file("/proc/cpuinfo");
    std::string line;
    while (line.rfind("flags", 0) != 0) {
        ASSERT_TRUE(std::getline(file, line));
    }
    EXPECT_EQ((line + ' ').find(" avx2 ") != std::string::npos, Avx2Usable());
}
#endif

// The checks above are worth as much as the faults they find.
constexpr std::uint32_t GeometriesForAFault = 500;
const RowKernels* sound = nullptr; // the table that the faulty kernels build on

class RowKernelsFault : public ::testing::TestWithParam<const RowKernels*> {
protected:
    RowKernelsFault() { sound = GetParam(); }
    RowKernels faulty = *GetParam();
};

TEST_P(RowKernelsFault, OneInAConstantOfYIsFound) {
    faulty.rgbToYRow = [](const std::uint8_t* src, const std::uint8_t* srcAhead, RgbOrder order, std::uint8_t* dst,
                          std::uint32_t width) {
        sound->rgbToYRow(src, srcAhead, order, dst, width);
        for (std::uint32_t i = 0; i < width; ++i, src += 4) {
            const int red = src[order == RgbOrder::RedFirst ? 0 : 2];
            const int blue = src[order == RgbOrder::RedFirst ? 2 : 0];
            const int sum = 66 * red + 129 * src[1] + 25 * blue + 128;
            dst[i] = static_cast<std::uint8_t>(dst[i] - (sum % 256 == 0 ? 1 : 0)); // as if 127 were added
        }
    };
    EXPECT_NE("", ColorDifference(faulty));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(RowKernelsFault, OneWrongColorIsFound) {
    faulty.rgbToUVRow = [](const std::uint8_t* src, RgbOrder order, UVPixels pixels, std::uint8_t* dst,
                           std::uint32_t width) {
        sound->rgbToUVRow(src, order, pixels, dst, width);
        for (std::uint32_t i = 0; i < width && pixels == UVPixels::Each; ++i, src += 4) {
            dst[2 * i] ^= src[0] == 200 && src[1] == 100 && src[2] == 50 ? 1 : 0;
        }
    };
    EXPECT_NE("", ColorDifference(faulty));
}

TEST_P(RowKernelsFault, TheOtherHalfOfThePixelsIsFound) {
    faulty.rgbToUVRow = [](const std::uint8_t* src, RgbOrder order, UVPixels pixels, std::uint8_t* dst,
                           std::uint32_t width) {
        sound->rgbToUVRow(src, order, pixels == UVPixels::Odd ? UVPixels::Even : pixels, dst, width);
    };
    EXPECT_NE("", ColorDifference(faulty));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(RowKernelsFault, OneInASnapshotConstantIsFound) {
    faulty.nv12ToBgr24Rows = [](const std::uint8_t* srcY, const std::uint8_t* srcUV, std::uint8_t* dst,
                                std::uint32_t width) {
        sound->nv12ToBgr24Rows(srcY, srcUV, dst, width);
        for (std::uint32_t x = 0; x < 2 * width; ++x) {
            const int sum = 298 * (srcY[x] - 16) + 410 * (srcUV[x % width | 1] - 128) + 128;
            dst[3 * x + 2] = static_cast<std::uint8_t>(std::clamp(sum >> 8, 0, 255));
        }
    };
    EXPECT_NE("", SnapshotDifference(faulty));
}

TEST_P(RowKernelsFault, ACopyWithoutItsLastByteIsFound) {
    faulty.copyRow = [](const std::uint8_t* src, std::uint8_t* dst, std::size_t byteCount) {
        sound->copyRow(src, dst, byteCount - 1);
    };
    EXPECT_NE("", RowDifference(faulty, 33));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(RowKernelsFault, ALongCopyWithoutItsLastByteIsFound) {
    faulty.copyRow = [](const std::uint8_t* src, std::uint8_t* dst, std::size_t byteCount) {
        sound->copyRow(src, dst, byteCount < 65536 ? byteCount : byteCount - 1);
    };
    EXPECT_NE("", RowDifference(faulty, 35));
}

TEST_P(RowKernelsFault, AMissingLastPairIsFound) {
    faulty.mergeUVRow = [](const std::uint8_t* srcU, const std::uint8_t* srcV, std::uint8_t* dst, std::uint32_t count) {
        sound->mergeUVRow(srcU, srcV, dst, count - 1);
    };
    EXPECT_NE("", RowDifference(faulty, 33));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

template <std::size_t SampleBytes>
void TransposeAndExchangeTwoRows(const RowMap& map, const std::uint8_t* const* rows, std::uint32_t rowCount,
                                 std::uint8_t* dst, std::size_t dstStride) {
    (SampleBytes == 1 ? sound->transposeRows8 : sound->transposeRows16)(map, rows, rowCount, dst, dstStride);
    if (map.byteCount >= 2 * SampleBytes) {
        std::swap_ranges(dst, dst + SampleBytes * rowCount, dst + dstStride);
    }
}

TEST_P(RowKernelsFault, TwoExchangedRowsOfYAreFound) {
    faulty.transposeRows8 = TransposeAndExchangeTwoRows<1>;
    EXPECT_NE("", RowDifference(faulty, 33));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(RowKernelsFault, TwoExchangedRowsOfPairsAreFound) {
    faulty.transposeRows16 = TransposeAndExchangeTwoRows<2>;
    EXPECT_NE("", RowDifference(faulty, 33));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(RowKernelsFault, AMissingSecondRowIsFound) {
    faulty.scaleRow = [](const RowMap& map, const std::uint8_t* src, const std::uint8_t* srcAhead, std::uint8_t* dst,
                         std::uint8_t*) { sound->scaleRow(map, src, srcAhead, dst, nullptr); };
    EXPECT_NE("", RowDifference(faulty, 33));
    EXPECT_NE("", RandomGeometryDifference(faulty, 1, GeometriesForAFault));
}

TEST_P(RowKernelsFault, AByteWrittenPastTheRowIsFound) {
    faulty.scaleRow = [](const RowMap& map, const std::uint8_t* src, const std::uint8_t* srcAhead, std::uint8_t* dst,
                         std::uint8_t* dst2) {
        const std::uint8_t kept = dst[map.byteCount - 1];
        sound->scaleRow(map, src, srcAhead, dst, dst2);
        dst[map.byteCount] = kept ^ 0xFFU;
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

// Every byte that is written is right, here and below.
TEST_P(RowKernelsFault, AByteReadPastTheRowIsFound) {
    faulty.scaleRow = [](const RowMap& map, const std::uint8_t* src, const std::uint8_t* srcAhead, std::uint8_t* dst,
                         std::uint8_t* dst2) {
        const std::uint32_t* const offsets = map.sampleOffsets;
        const std::uint32_t last = *std::max_element(offsets, offsets + map.byteCount / map.sampleBytes);
        const volatile std::uint8_t* const past = src + last + map.sampleBytes;
        (void)*past;
        sound->scaleRow(map, src, srcAhead, dst, dst2);
    };
    EXPECT_EXIT((void)RandomGeometryDifference(faulty, 1, GeometriesForAFault), EndedByAccess, AccessReport);
}

INSTANTIATE_TEST_SUITE_P(All, RowKernelsFault, ::testing::ValuesIn(UsableKernels()),
                         [](const auto& run) { return NameOf(run.param); });

// Only this table reads windows: each first one byte late, so that the last one ends one byte past the row.
TEST(RowKernelsAvx2Fault, AWindowOneBytePastTheRowIsFound) {
    if (!Avx2Usable()) {
        GTEST_SKIP() << "this processor has no AVX2";
    }
    RowKernels faulty = Avx2Kernels;
    faulty.scaleRow = [](const RowMap& map, const std::uint8_t* src, const std::uint8_t* srcAhead, std::uint8_t* dst,
                         std::uint8_t* dst2) {
        if (map.windowCount > 0) {
            Avx2Kernels.scaleRow(map, src + 1, srcAhead, dst, dst2);
        }
        Avx2Kernels.scaleRow(map, src, srcAhead, dst, dst2);
    };
    EXPECT_EXIT((void)RandomGeometryDifference(faulty, 1, GeometriesForAFault), EndedByAccess, AccessReport);
}

} // namespace
} // namespace receiver
