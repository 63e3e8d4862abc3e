// FrameCanvas: black outside the picture, regardless of the content before; what is black is not written again.
#include "frames/conversion/canvas.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace receiver {
namespace {

constexpr std::uint32_t Width = 16;
constexpr std::uint32_t Height = 8;
constexpr PictureRectangle Whole{0, 0, Width, Height};
constexpr std::uint8_t Picture = 77;

// Fills the picture and counts the bytes outside that are not black.
std::size_t CountWrongBytes(FrameCanvas& canvas, std::uint32_t width, std::uint32_t height,
                            const PictureRectangle& picture) {
    std::size_t wrong = 0;
    for (std::uint32_t row = 0; row < height / 2 * 3; ++row) {
        const bool luma = row < height;
        const std::uint32_t y = luma ? row : (row - height) * 2;
        for (std::uint32_t x = 0; x < width; ++x) {
            std::uint8_t& byte = canvas.Y()[row * width + x];
            const bool inside =
                x >= picture.x && x < picture.x + picture.width && y >= picture.y && y < picture.y + picture.height;
            wrong += !inside && byte != (luma ? 16 : 128) ? 1U : 0U;
            byte = inside ? Picture : byte;
        }
    }
    return wrong + (canvas.Frame().bytes.size() == std::size_t{width} * height / 2 * 3 ? 0 : 1);
}

TEST(FrameCanvas, IsBlackOutsideThePictureAfterAnyOther) {
    const std::vector<PictureRectangle> pictures = {{},           {0, 0, 16, 8}, {4, 0, 8, 8}, {0, 2, 16, 4},
                                                    {6, 2, 4, 2}, {2, 2, 4, 2},  {4, 0, 8, 8}, {14, 6, 2, 2}};
    for (const PictureRectangle& first : pictures) {
        for (const PictureRectangle& second : pictures) {
            FrameCanvas canvas;
            canvas.Prepare(Width, Height, Whole);
            std::fill_n(canvas.Y(), Width * Height * 3 / 2, std::uint8_t{99});
            for (const PictureRectangle& picture : {first, second, first}) {
                canvas.Prepare(Width, Height, picture);
                ASSERT_EQ(0U, CountWrongBytes(canvas, Width, Height, picture));
            }
        }
    }
}

TEST(FrameCanvas, IsBlackAfterAChangeOfSize) {
    FrameCanvas canvas;
    EXPECT_TRUE(canvas.Frame().bytes.empty());
    const PictureRectangle picture{2, 2, 4, 4};
    for (const std::uint32_t width : {16U, 8U, 12U, 16U}) {
        for (const std::uint32_t height : {8U, 12U}) {
            canvas.Prepare(width, height, picture);
            EXPECT_EQ(0U, CountWrongBytes(canvas, width, height, picture));
        }
    }
    FrameCanvas other = std::move(canvas);
    canvas = FrameCanvas();
    canvas.Prepare(16, 12, picture);
    EXPECT_EQ(0U, CountWrongBytes(canvas, 16, 12, picture));
    other.Prepare(16, 12, {});
    EXPECT_EQ(0U, CountWrongBytes(other, 16, 12, {}));
}

TEST(FrameCanvas, LeavesBarsAloneThatAreStillBlack) {
    FrameCanvas canvas;
    canvas.Prepare(Width, Height, {6, 2, 4, 2});
    canvas.Y()[0] = 1; // against the rules, to see whether it is cleared
    for (const PictureRectangle& covering : {PictureRectangle{6, 2, 4, 2}, {4, 2, 8, 4}, {4, 2, 8, 4}}) {
        canvas.Prepare(Width, Height, covering);
        EXPECT_EQ(1, canvas.Y()[0]);
    }
    canvas.Prepare(Width, Height, {6, 2, 4, 2}); // leaves some of the last picture uncovered
    EXPECT_EQ(16, canvas.Y()[0]);
    canvas.Y()[0] = 1;
    canvas.Prepare(Width, Height, Whole);
    canvas.Prepare(Width, Height, {6, 2, 4, 2});
    EXPECT_EQ(16, canvas.Y()[0]);
    canvas.Prepare(Width, Height, {});
    canvas.Y()[0] = 1;
    canvas.Prepare(Width, Height, {6, 2, 4, 2}); // on a canvas that is wholly black
    EXPECT_EQ(1, canvas.Y()[0]);
}

} // namespace
} // namespace receiver
