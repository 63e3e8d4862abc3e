#include "sample_camera/card.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace sample_camera {
namespace {

std::vector<std::uint8_t> Card(const std::string& text, PictureSize size) {
    std::vector<std::uint8_t> nv12(ImageBytes({PixelFormat::Nv12, size}), 7);
    DrawCard(text, nv12.data(), size);
    return nv12;
}

// The rows of Y that hold text, as bands: the number of lines that one sees.
std::size_t LineCount(const std::vector<std::uint8_t>& nv12, PictureSize size) {
    std::size_t lines = 0;
    bool inLine = false;
    for (std::size_t y = 0; y < size.height; ++y) {
        const std::uint8_t* const row = nv12.data() + y * size.width;
        const bool text = std::any_of(row, row + size.width, [&](std::uint8_t value) { return value != nv12[0]; });
        lines += text && !inLine ? 1 : 0;
        inLine = text;
    }
    return lines;
}

std::ptrdiff_t TextPixels(const std::vector<std::uint8_t>& nv12, PictureSize size) {
    const auto end = nv12.begin() + std::ptrdiff_t{size.width} * size.height;
    return std::count_if(nv12.begin(), end, [&](std::uint8_t value) { return value != nv12[0]; });
}

TEST(Card, IsGrayWithoutText) {
    for (const PictureSize size : {Size720p, Size1080p}) {
        const std::vector<std::uint8_t> card = Card("", size);
        const auto colors = card.begin() + std::ptrdiff_t{size.width} * size.height;
        EXPECT_EQ(TextPixels(card, size), 0);
        EXPECT_TRUE(std::all_of(colors, card.end(), [](std::uint8_t value) { return value == 128; }));
    }
}

// An I is three dots wide at top and bottom and one in the five rows between: eleven dots of 6 x 6 or 9 x 9 pixels.
TEST(Card, DrawsALetterInDotsThatGrowWithTheSize) {
    EXPECT_EQ(TextPixels(Card("I", Size720p), Size720p), 11 * 36);
    EXPECT_EQ(TextPixels(Card("i", Size1080p), Size1080p), 11 * 81);
}

TEST(Card, DrawsEachLetterAndDigitDifferently) {
    std::set<std::string> cards;
    std::size_t count = 0;
    for (const char character : std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789,: ")) {
        const std::vector<std::uint8_t> card = Card(std::string(1, character), Size720p);
        cards.emplace(card.begin(), card.end());
        ++count;
    }
    EXPECT_EQ(cards.size(), count);
}

TEST(Card, BreaksLinesAtBlanksAndCutsOffWhatDoesNotFit) {
    EXPECT_EQ(LineCount(Card("HHHHHHHHH HHHHHHHHH HHHHHHHHHH", Size720p), Size720p), 1U) << "30 characters";
    EXPECT_EQ(LineCount(Card("HHHHHHHHH HHHHHHHHH HHHHHHHHHHH", Size720p), Size720p), 2U) << "31 characters";
    EXPECT_EQ(LineCount(Card(std::string(31, 'H'), Size720p), Size720p), 2U) << "a word that is too long";
    EXPECT_EQ(LineCount(Card(std::string(1000, 'H'), Size1080p), Size1080p), 6U);
    EXPECT_EQ(LineCount(Card(" H", Size720p), Size720p), 1U);
    EXPECT_EQ(LineCount(Card(" " + std::string(40, 'H'), Size720p), Size720p), 2U) << "no blank but the first";
}

} // namespace
} // namespace sample_camera
