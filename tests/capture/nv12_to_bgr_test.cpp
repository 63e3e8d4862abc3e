#include "capture/nv12_to_bgr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace receiver {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Convert(const Bytes& frame, std::uint32_t width, std::uint32_t height) {
    Bytes pixels;
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), static_cast<std::uint32_t>(frame.size()), width, height, &pixels), S_OK);
    return pixels;
}

// A frame of one colour.
Bytes Uniform(std::uint32_t width, std::uint32_t height, std::uint8_t y, std::uint8_t u, std::uint8_t v) {
    Bytes frame(width * height, y);
    for (std::uint32_t pair = 0; pair < width * height / 4; ++pair) {
        frame.insert(frame.end(), {u, v});
    }
    return frame;
}

Bytes ColourOf(std::uint8_t y, std::uint8_t u, std::uint8_t v) {
    const Bytes pixels = Convert(Uniform(2, 2, y, u, v), 2, 2);
    EXPECT_TRUE(std::equal(pixels.begin(), pixels.end() - 3, pixels.begin() + 3));
    return {pixels.begin(), pixels.begin() + 3};
}

// 1/256 of a value, rounded down.
int Part256(int value) { return static_cast<int>(std::floor(value / 256.0)); }

TEST(Nv12ToBgrTest, GraysAreExact) {
    EXPECT_EQ(ColourOf(16, 128, 128), (Bytes{0, 0, 0}));
    EXPECT_EQ(ColourOf(235, 128, 128), (Bytes{255, 255, 255}));
    EXPECT_EQ(ColourOf(255, 128, 128), (Bytes{255, 255, 255}));
    EXPECT_EQ(ColourOf(0, 128, 128), (Bytes{0, 0, 0}));
    EXPECT_EQ(ColourOf(126, 128, 128), (Bytes{128, 128, 128}));
}

TEST(Nv12ToBgrTest, ColoursAreInTheOrderBlueGreenRed) {
    EXPECT_EQ(ColourOf(41, 240, 110), (Bytes{255, 0, 0}));
    EXPECT_EQ(ColourOf(145, 54, 34), (Bytes{1, 255, 0}));
    EXPECT_EQ(ColourOf(81, 90, 240), (Bytes{0, 0, 255}));
}

TEST(Nv12ToBgrTest, EveryColourFollowsTheFormula) {
    // One frame of 512 x 512 for each luma value: a block of two by two for every pair of chroma values.
    Bytes pixels;
    for (int y = 0; y < 256; ++y) {
        Bytes frame(512 * 512, static_cast<std::uint8_t>(y));
        for (int u = 0; u < 256; ++u) {
            for (int v = 0; v < 256; ++v) {
                frame.insert(frame.end(), {static_cast<std::uint8_t>(u), static_cast<std::uint8_t>(v)});
            }
        }
        ASSERT_EQ(ConvertNv12ToBgr24(frame.data(), static_cast<std::uint32_t>(frame.size()), 512, 512, &pixels), S_OK);
        std::size_t wrong = 0;
        for (int u = 0; u < 256; ++u) {
            for (int v = 0; v < 256; ++v) {
                const int luma = 298 * (y - 16) + 128;
                const int expected[3] = {luma + 516 * (u - 128), luma - 100 * (u - 128) - 208 * (v - 128),
                                         luma + 409 * (v - 128)};
                for (int corner = 0; corner < 4; ++corner) {
                    const int at = (2 * u + corner / 2) * 512 + 2 * v + corner % 2;
                    for (int channel = 0; channel < 3; ++channel) {
                        const int value = std::min(std::max(Part256(expected[channel]), 0), 255);
                        wrong += pixels[static_cast<std::size_t>(at * 3 + channel)] != value ? 1U : 0U;
                    }
                }
            }
        }
        ASSERT_EQ(wrong, 0U) << "luma " << y;
    }
}

TEST(Nv12ToBgrTest, APairOfChromaColoursFourPixels) {
    const Bytes frame{16,  16,  16,  16, 16, 16, 16, 16, // luma, 4 x 2
                      240, 128, 128, 240}; // blue on the left, red on the right
    const Bytes pixels = Convert(frame, 4, 2);
    const Bytes blue{226, 0, 0};
    const Bytes red{0, 0, 179};
    Bytes row;
    for (const Bytes& colour : {blue, blue, red, red}) {
        row.insert(row.end(), colour.begin(), colour.end());
    }
    Bytes expected = row;
    expected.insert(expected.end(), row.begin(), row.end());
    EXPECT_EQ(pixels, expected);
}

TEST(Nv12ToBgrTest, RowsFollowEachOtherWithoutPadding) {
    Bytes frame = Uniform(6, 4, 16, 128, 128);
    for (std::size_t y = 0; y < 4; ++y) {
        for (std::size_t x = 0; x < 6; ++x) {
            frame[y * 6 + x] = static_cast<std::uint8_t>(16 + 6 * y + x);
        }
    }
    const Bytes pixels = Convert(frame, 6, 4);
    ASSERT_EQ(pixels.size(), 6U * 4 * 3);
    for (std::size_t pixel = 0; pixel < 24; ++pixel) {
        const auto gray = static_cast<std::uint8_t>((298 * pixel + 128) / 256);
        EXPECT_EQ((Bytes{&pixels[pixel * 3], &pixels[pixel * 3] + 3}), (Bytes{gray, gray, gray}));
    }
}

TEST(Nv12ToBgrTest, BytesBehindTheFrameAreIgnored) {
    Bytes frame = Uniform(4, 2, 100, 90, 160);
    const Bytes expected = Convert(frame, 4, 2);
    frame.insert(frame.end(), 7, 255);
    EXPECT_EQ(Convert(frame, 4, 2), expected);
}

TEST(Nv12ToBgrTest, AUsedVectorIsFilledAnew) {
    Bytes pixels(1000, 77);
    const Bytes frame = Uniform(2, 2, 16, 128, 128);
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), 6, 2, 2, &pixels), S_OK);
    EXPECT_EQ(pixels, Bytes(12, 0));
}

TEST(Nv12ToBgrTest, AnUnusableFrameIsRefusedAndNothingTouched) {
    const Bytes frame(64 * 64 * 3 / 2, 128);
    const auto size = static_cast<std::uint32_t>(frame.size());
    Bytes pixels{1, 2, 3};
    EXPECT_EQ(ConvertNv12ToBgr24(nullptr, size, 64, 64, &pixels), E_INVALIDARG);
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), size, 0, 64, &pixels), E_INVALIDARG);
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), size, 64, 0, &pixels), E_INVALIDARG);
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), size, 63, 64, &pixels), E_INVALIDARG);
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), size, 64, 63, &pixels), E_INVALIDARG);
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), size - 1, 64, 64, &pixels), E_INVALIDARG);
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), 0, 64, 64, &pixels), E_INVALIDARG);
    // Sizes of four gigabytes and more do not wrap round to something small.
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), size, 65536, 65536, &pixels), E_INVALIDARG);
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), size, 4294967294U, 4294967294U, &pixels), E_INVALIDARG);
    EXPECT_EQ(pixels, (Bytes{1, 2, 3}));
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), size, 64, 64, nullptr), E_INVALIDARG);
}

} // namespace
} // namespace receiver
