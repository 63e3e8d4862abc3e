// The table of qualities, and how a quality is found by name, by frame size and by width.
#include "app/quality.h"

#include <gtest/gtest.h>

namespace receiver {
namespace {

TEST(Quality, TheTableHasTwoEntriesAndStartsWithTheDefault) {
    ASSERT_EQ(Qualities.size(), 2U);
    EXPECT_EQ(DefaultQuality.name, L"720p");
    EXPECT_EQ(DefaultQuality.width, 1280U);
    EXPECT_EQ(DefaultQuality.height, 720U);
    EXPECT_EQ(DefaultQuality.bitsPerSecond, 6000000U);
    EXPECT_EQ(LargestQuality.name, L"1080p");
    EXPECT_EQ(LargestQuality.width, 1920U);
    EXPECT_EQ(LargestQuality.height, 1080U);
    EXPECT_EQ(LargestQuality.bitsPerSecond, 10000000U);
}

TEST(Quality, IsFoundByItsExactName) {
    EXPECT_EQ(FindQuality(L"720p"), &Qualities[0]);
    EXPECT_EQ(FindQuality(L"1080p"), &Qualities[1]);
    for (const wchar_t* name : {L"", L"480p", L"720P", L"1080P", L"1080p ", L" 1080p", L"720", L"720p1080p"}) {
        EXPECT_EQ(FindQuality(name), nullptr) << name;
    }
    EXPECT_EQ(FindQuality({L"1080p\0", 6}), nullptr);
}

TEST(Quality, IsFoundByItsExactFrameSize) {
    EXPECT_EQ(FindQuality(1280, 720), &Qualities[0]);
    EXPECT_EQ(FindQuality(1920, 1080), &Qualities[1]);
    struct {
        std::uint32_t width;
        std::uint32_t height;
    } const others[] = {{1280, 1080}, {1920, 720}, {720, 1280},  {1080, 1920}, {1279, 720}, {1281, 720},
                        {1280, 719},  {1280, 721}, {1919, 1080}, {1920, 1081}, {0, 0},      {3840, 2160}};
    for (const auto& size : others) {
        EXPECT_EQ(FindQuality(size.width, size.height), nullptr) << size.width << " x " << size.height;
    }
}

TEST(Quality, TheWidthAloneDecidesTheBitRate) {
    for (const std::uint32_t width : {0U, 640U, 1279U, 1280U, 1918U, 1919U}) {
        EXPECT_EQ(RecordingBitsPerSecond(width), 6000000U) << width;
    }
    for (const std::uint32_t width : {1920U, 1921U, 3840U}) {
        EXPECT_EQ(RecordingBitsPerSecond(width), 10000000U) << width;
    }
}

} // namespace
} // namespace receiver
