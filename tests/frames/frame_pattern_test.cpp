// The judge of the torn frames is judged: no mixture of two frames passes for a whole one.
#include "tests/frames/frame_pattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

namespace receiver {
namespace {

// Bytes between the places that are tested: cache lines, whose distance divides no row.
constexpr std::size_t Step = 13 * 64;

std::vector<std::uint8_t> MakePattern(std::uint32_t number) {
    std::vector<std::uint8_t> frame(SizeOfPattern(number).Bytes());
    FillPattern(frame.data(), frame.size(), number);
    return frame;
}

std::optional<std::uint32_t> Read(const std::vector<std::uint8_t>& frame, std::uint32_t number) {
    return ReadPattern(frame.data(), SizeOfPattern(number).width, SizeOfPattern(number).height);
}

TEST(FramePattern, AWholeFrameTellsItsNumber) {
    for (const std::uint32_t number : {0U, 1U, 2U, 1000001U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        EXPECT_EQ(Read(MakePattern(number), number), number);
        EXPECT_EQ(Read(MakePattern(number), number + 1), std::nullopt) << "under the header of the other size";
    }
}

// Copied over an older one from its start on, and stopped behind `step`, twice `step` and so on.
void ExpectMixturesSeen(std::uint32_t older, std::uint32_t newer, std::size_t step) {
    const std::vector<std::uint8_t> source = MakePattern(newer);
    std::vector<std::uint8_t> frame = MakePattern(older);
    for (std::size_t begin = 0; begin + step < source.size(); begin += step) {
        std::copy_n(source.data() + begin, step, frame.data() + begin);
        ASSERT_EQ(Read(frame, newer), std::nullopt) << begin + step;
    }
}

TEST(FramePattern, AMixtureOfTwoFramesIsSeen) { ExpectMixturesSeen(2, 4, Step); }

TEST(FramePattern, AMixtureOfTwoLargeFramesAtAnyRowIsSeen) { ExpectMixturesSeen(1, 3, 1920); }

TEST(FramePattern, EightBytesOfAnotherFrameAreSeen) {
    std::vector<std::uint8_t> frame = MakePattern(2);
    for (std::size_t step = 0; step < frame.size() / Step; ++step) {
        const std::size_t index = step * Step / 8 + step % 8; // in words; at each place of a line in turn
        std::uint8_t* const word = frame.data() + 8 * index;
        const std::uint64_t right = PatternWord(2, index);
        const std::uint64_t wrong = PatternWord(4, index);
        std::memcpy(word, &wrong, sizeof(wrong));
        ASSERT_EQ(Read(frame, 2), std::nullopt) << index;
        std::memcpy(word, &right, sizeof(right));
    }
    EXPECT_EQ(Read(frame, 2), 2U);
}

TEST(FramePattern, AShiftedFrameIsSeen) {
    const std::vector<std::uint8_t> frame = MakePattern(4);
    std::vector<std::uint8_t> shifted(frame.begin() + 8, frame.end());
    shifted.insert(shifted.end(), frame.begin(), frame.begin() + 8);
    EXPECT_EQ(Read(shifted, 4), std::nullopt);
}

} // namespace
} // namespace receiver
