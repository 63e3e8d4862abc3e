#include "capture/nv12_to_bgr.h"
#include "tests/frames/conversion/reference_converter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace receiver {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Convert(const Bytes& frame, std::uint32_t width, std::uint32_t height) {
    Bytes pixels;
    EXPECT_EQ(ConvertNv12ToBgr24(frame.data(), static_cast<std::uint32_t>(frame.size()), width, height, &pixels), S_OK);
    return pixels;
}

// A frame of one color.
Bytes Uniform(std::uint32_t width, std::uint32_t height, std::uint8_t y, std::uint8_t u, std::uint8_t v) {
    Bytes frame(width * height, y);
    for (std::uint32_t pair = 0; pair < width * height / 4; ++pair) {
        frame.insert(frame.end(), {u, v});
    }
    return frame;
}

Bytes ColorOf(std::uint8_t y, std::uint8_t u, std::uint8_t v) {
    const Bytes pixels = Convert(Uniform(2, 2, y, u, v), 2, 2);
    EXPECT_TRUE(std::equal(pixels.begin(), pixels.end() - 3, pixels.begin() + 3));
    return {pixels.begin(), pixels.begin() + 3};
}

TEST(Nv12ToBgrTest, GraysAreExact) {
    EXPECT_EQ(ColorOf(16, 128, 128), (Bytes{0, 0, 0}));
    EXPECT_EQ(ColorOf(235, 128, 128), (Bytes{255, 255, 255}));
    EXPECT_EQ(ColorOf(255, 128, 128), (Bytes{255, 255, 255}));
    EXPECT_EQ(ColorOf(0, 128, 128), (Bytes{0, 0, 0}));
    EXPECT_EQ(ColorOf(126, 128, 128), (Bytes{128, 128, 128}));
}

TEST(Nv12ToBgrTest, ColorsAreInTheOrderBlueGreenRed) {
    EXPECT_EQ(ColorOf(41, 240, 110), (Bytes{255, 0, 0}));
    EXPECT_EQ(ColorOf(145, 54, 34), (Bytes{1, 255, 0}));
    EXPECT_EQ(ColorOf(81, 90, 240), (Bytes{0, 0, 255}));
}

// The tests of the kernels try every color.
TEST(Nv12ToBgrTest, EveryPixelFollowsTheFormula) {
    std::minstd_rand random(1);
    for (const auto& [width, height] : {std::array{2U, 2U}, {2U, 40U}, {62U, 6U}, {66U, 34U}, {1280U, 720U}}) {
        Bytes frame(std::size_t{width} * height * 3 / 2);
        std::ranges::generate(frame, [&] { return static_cast<std::uint8_t>(random() >> 8); });
        EXPECT_TRUE(Convert(frame, width, height) == ReferenceSnapshot(frame, width, height))
            << width << " x " << height;
    }
}

TEST(Nv12ToBgrTest, APairOfChromaColorsFourPixels) {
    const Bytes frame{16,  16,  16,  16, 16, 16, 16, 16, // luma, 4 x 2
                      240, 128, 128, 240}; // blue on the left, red on the right
    const Bytes pixels = Convert(frame, 4, 2);
    const Bytes blue{226, 0, 0};
    const Bytes red{0, 0, 179};
    Bytes row;
    for (const Bytes& color : {blue, blue, red, red}) {
        row.insert(row.end(), color.begin(), color.end());
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
