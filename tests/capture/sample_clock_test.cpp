#include "capture/sample_clock.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace receiver {
namespace {

TEST(SampleClockTest, CountsFromTheStartInHundredNanoseconds) {
    EXPECT_EQ(NextSampleTime(1000, 1123, NoSampleYet), 1'230'000);
    EXPECT_EQ(NextSampleTime(1000, 1156, 1'230'000), 1'560'000);
}

TEST(SampleClockTest, AFrameInTheMillisecondOfTheStartIsAtZero) {
    EXPECT_EQ(NextSampleTime(1000, 1000, NoSampleYet), 0);
    EXPECT_EQ(NextSampleTime(1000, 1000, 0), 1);
    EXPECT_EQ(NextSampleTime(1000, 1000, 1), 2);
}

TEST(SampleClockTest, FramesInOneMillisecondAreOneUnitApart) {
    EXPECT_EQ(NextSampleTime(0, 33, 329'999), 330'000);
    EXPECT_EQ(NextSampleTime(0, 33, 330'000), 330'001);
    EXPECT_EQ(NextSampleTime(0, 33, 330'001), 330'002);
    EXPECT_EQ(NextSampleTime(0, 34, 330'002), 340'000);
}

TEST(SampleClockTest, NeverDecreases) {
    EXPECT_EQ(NextSampleTime(1000, 1010, 5'000'000), 5'000'001);
    EXPECT_EQ(NextSampleTime(1000, 999, NoSampleYet), 0);
    EXPECT_EQ(NextSampleTime(1000, 0, 7), 8);
}

TEST(SampleClockTest, CountsAYear) {
    constexpr std::uint64_t year = 366ULL * 24 * 60 * 60 * 1000;
    EXPECT_EQ(NextSampleTime(5, 5 + year, NoSampleYet), static_cast<std::int64_t>(year) * 10'000);
    constexpr std::uint64_t late = std::numeric_limits<std::uint32_t>::max();
    EXPECT_EQ(NextSampleTime(late, late + 2, 10'000), 20'000);
}

} // namespace
} // namespace receiver
