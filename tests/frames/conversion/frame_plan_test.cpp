// The plan of a conversion: the fitted picture, and where each of its samples comes from.
#include "frames/conversion/frame_plan.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {

// For the messages of failed tests.
static void PrintTo(const PictureRectangle& picture, std::ostream* stream) {
    *stream << picture.width << " x " << picture.height << " at " << picture.x << ", " << picture.y;
}

namespace {

struct CanvasSize {
    std::uint32_t width;
    std::uint32_t height;
};
constexpr CanvasSize Canvases[] = {{1280, 720}, {1920, 1080}};

FrameDescriptor TightFrame(std::wstring_view format, std::uint32_t width, std::uint32_t height) {
    FrameDescriptor frame;
    frame.format = format;
    frame.codedWidth = frame.displayWidth = width;
    frame.codedHeight = frame.displayHeight = height;
    const std::uint64_t yBytes = std::uint64_t{width} * height;
    if (format == L"NV12") {
        frame.AddPlane({0, width});
        frame.AddPlane({yBytes, width});
    } else if (format == L"I420") {
        frame.AddPlane({0, width});
        frame.AddPlane({yBytes, width / 2});
        frame.AddPlane({yBytes * 5 / 4, width / 2});
    } else {
        frame.AddPlane({0, std::uint64_t{4} * width});
    }
    return frame;
}

FramePlan PlanOf(const FrameDescriptor& frame, CanvasSize canvas = {1280, 720}) {
    return {frame, *FindPixelFormat(frame.format, frame.planeCount), canvas.width, canvas.height};
}

TEST(FramePlan, FitsThePictureToTheCanvas) {
    struct Case {
        std::uint32_t displayWidth;
        std::uint32_t displayHeight;
        CanvasSize canvas;
        PictureRectangle picture; // x, y, width, height
    };
    for (const Case& fit : {
             Case{1280, 720, {1280, 720}, {0, 0, 1280, 720}},      Case{1920, 1080, {1280, 720}, {0, 0, 1280, 720}},
             Case{16, 9, {1920, 1080}, {0, 0, 1920, 1080}},        Case{640, 480, {1280, 720}, {160, 0, 960, 720}},
             Case{720, 1280, {1920, 1080}, {656, 0, 606, 1080}},   Case{1080, 1920, {1280, 720}, {438, 0, 404, 720}},
             Case{1920, 1088, {1920, 1080}, {8, 0, 1904, 1080}},   Case{1366, 768, {1280, 720}, {0, 0, 1280, 718}},
             Case{854, 480, {1280, 720}, {0, 0, 1280, 718}},       Case{4096, 2160, {1920, 1080}, {0, 34, 1920, 1012}},
             Case{1279, 720, {1280, 720}, {0, 0, 1278, 720}},      Case{1, 1, {1280, 720}, {280, 0, 720, 720}},
             Case{4096, 4096, {1920, 1080}, {420, 0, 1080, 1080}}, Case{1, 4096, {1280, 720}, {638, 0, 2, 720}},
             Case{4096, 1, {1280, 720}, {0, 358, 1280, 2}},        Case{1, 4096, {1920, 1080}, {958, 0, 2, 1080}},
             Case{4096, 1, {1920, 1080}, {0, 538, 1920, 2}},       Case{4096, 7, {1280, 720}, {0, 358, 1280, 2}},
             Case{4096, 13, {1280, 720}, {0, 358, 1280, 4}},
         }) {
        EXPECT_EQ(fit.picture, FitPicture(fit.displayWidth, fit.displayHeight, fit.canvas.width, fit.canvas.height))
            << fit.displayWidth << " x " << fit.displayHeight << " on " << fit.canvas.width;
    }
}

TEST(FramePlan, KeepsEveryPictureEvenCenteredAndInsideTheCanvas) {
    constexpr std::uint32_t Step = 13; // with 1 as the start the last size is the largest, 4096
    for (const CanvasSize& canvas : Canvases) {
        for (std::uint32_t displayWidth = 1; displayWidth <= 4096; displayWidth += Step) {
            for (std::uint32_t displayHeight = 1; displayHeight <= 4096; displayHeight += Step) {
                const PictureRectangle picture = FitPicture(displayWidth, displayHeight, canvas.width, canvas.height);
                const std::uint32_t leftOver = canvas.width - picture.width;
                const std::uint32_t topOver = canvas.height - picture.height;
                ASSERT_TRUE(picture.x % 2 == 0 && picture.y % 2 == 0 && picture.width % 2 == 0 &&
                            picture.height % 2 == 0 && picture.width >= 2 && picture.height >= 2 &&
                            picture.width <= canvas.width && picture.height <= canvas.height &&
                            (picture.width == canvas.width || picture.height == canvas.height) &&
                            (picture.x * 2 == leftOver || picture.x * 2 + 2 == leftOver) &&
                            (picture.y * 2 == topOver || picture.y * 2 + 2 == topOver))
                    << displayWidth << " x " << displayHeight << " on " << canvas.width << ": "
                    << ::testing::PrintToString(picture);
            }
        }
    }
}

// Expects sample i of each destination row, or column, to be sample column(i) of the source, and destination row or
// column j to be source row row(j).
template <typename Column, typename Row>
void ExpectSources(const PlanePlan& plane, std::size_t width, std::size_t height, Column column, Row row) {
    ASSERT_EQ(width * plane.map.sampleBytes, plane.map.byteCount);
    ASSERT_EQ(height, plane.rows.size());
    for (std::uint32_t i = 0; i < width; ++i) {
        ASSERT_EQ(column(i) * plane.map.sampleBytes, plane.map.sampleOffsets[i]) << i;
    }
    for (std::uint32_t j = 0; j < height; ++j) {
        ASSERT_EQ(row(j), plane.rows[j]) << j;
    }
}

constexpr auto Same = [](std::uint32_t i) { return i; };

TEST(FramePlan, TakesAnUnscaledPictureSampleBySample) {
    for (const std::wstring_view format : {L"NV12", L"I420"}) {
        const FramePlan plan = PlanOf(TightFrame(format, 1280, 720));
        EXPECT_EQ((PictureRectangle{0, 0, 1280, 720}), plan.picture);
        EXPECT_FALSE(plan.transposed);
        ExpectSources(plan.y, 1280, 720, Same, Same);
        ExpectSources(plan.uv, 640, 360, Same, Same);
        EXPECT_TRUE(plan.y.map.identity && plan.uv.map.identity);
    }
    const FramePlan plan = PlanOf(TightFrame(L"RGBA", 1280, 720));
    ExpectSources(plan.y, 1280, 720, Same, Same);
    EXPECT_EQ(UVPixels::Even, plan.uvPixels);
    ExpectSources(plan.uv, 640, 360, Same, [](std::uint32_t j) { return 2 * j; });
}

TEST(FramePlan, PicksTheScaledPixelsOfAnRgbFrameBeforeTheyBecomePairs) {
    const FramePlan plan = PlanOf(TightFrame(L"RGBA", 1920, 1080));
    EXPECT_EQ(UVPixels::Each, plan.uvPixels);
    ASSERT_EQ(640U * 4, plan.uvPixelMap.byteCount);
    for (std::uint32_t i = 0; i < 640; ++i) {
        ASSERT_EQ(3 * i * 4, plan.uvPixelMap.sampleOffsets[i]) << i;
    }
    ExpectSources(plan.uv, 640, 360, Same, [](std::uint32_t j) { return 3 * j; });
    EXPECT_TRUE(plan.uv.map.identity);
}

TEST(FramePlan, TakesTheLeftmostColumnOfAQuarterTurnFromTheBottomRow) {
    FrameDescriptor frame = TightFrame(L"NV12", 1280, 720);
    frame.rotation = 90;
    const FramePlan plan = PlanOf(frame);
    EXPECT_TRUE(plan.transposed);
    ExpectSources(
        plan.y, 720, 1280, [](std::uint32_t i) { return i * 1280 / 720; },
        [](std::uint32_t j) { return 719 - j * 720 / 1280; });
}

TEST(FramePlan, MirrorsWhenExactlyOneFlipIsSet) {
    for (const bool flipA : {false, true}) {
        for (const bool flipB : {false, true}) {
            FrameDescriptor frame = TightFrame(L"NV12", 1280, 720);
            frame.flipA = flipA;
            frame.flipB = flipB;
            EXPECT_EQ(flipA != flipB ? 1279U : 0U, PlanOf(frame).y.map.sampleOffsets[0]);
        }
    }
}

TEST(FramePlan, MirrorsAlongTheRotatedWidth) {
    FrameDescriptor frame = TightFrame(L"NV12", 1280, 720);
    frame.flipB = true;
    const FramePlan upright = PlanOf(frame);
    ExpectSources(
        upright.y, 1280, 720, [](std::uint32_t i) { return 1279 - i; }, Same);
    ExpectSources(
        upright.uv, 640, 360, [](std::uint32_t i) { return 639 - i; }, Same);
    frame.rotation = 90;
    EXPECT_EQ(0U, PlanOf(frame).y.rows[0]);
    frame.rotation = 180;
    EXPECT_TRUE(PlanOf(frame).y.map.identity);
    EXPECT_EQ(719U, PlanOf(frame).y.rows[0]);
    frame.rotation = 270;
    EXPECT_EQ(719U, PlanOf(frame).y.rows[0]);
}

TEST(FramePlan, IsForTheSameFrameAlone) {
    const FrameDescriptor frame = TightFrame(L"I420", 1280, 720);
    const FramePlan plan = PlanOf(frame);
    EXPECT_TRUE(plan.IsFor(frame, 1280, 720));
    EXPECT_FALSE(plan.IsFor(frame, 1920, 720));
    EXPECT_FALSE(plan.IsFor(frame, 1280, 1080));
    FrameDescriptor other = frame;
    other.planes[2].stride += 1;
    EXPECT_FALSE(plan.IsFor(other, 1280, 720));
}

TEST(FramePlan, KeepsNoTextOfTheMessage) {
    std::wstring text = L"NV12";
    FrameDescriptor frame = TightFrame(L"NV12", 1280, 720);
    frame.format = text;
    const FramePlan plan = PlanOf(frame);
    text = L"gone";
    EXPECT_EQ(L"NV12", plan.frame.format);
}

// A wrong choice would give the same picture in a multiple of the time.
TEST(FramePlan, ChoosesTheFastPaths) {
    enum class Way { Copy, Identity, OneWindow, TwoWindows, FourWindows, SampleBySample };
    struct Case {
        const wchar_t* format;
        std::uint32_t width, height, rotation;
        bool mirrored;
        CanvasSize canvas;
        Way y, uv;
        bool repeats; // controls of groups
    };
    for (const Case& known : {
             Case{L"NV12", 1280, 720, 0, false, {1280, 720}, Way::Copy, Way::Copy, false},
             Case{L"NV12", 1920, 1080, 0, false, {1920, 1080}, Way::Copy, Way::Copy, false},
             Case{L"I420", 1920, 1080, 0, false, {1920, 1080}, Way::Copy, Way::Identity, false},
             Case{L"RGBA", 1920, 1080, 0, false, {1920, 1080}, Way::Identity, Way::Identity, false},
             Case{L"NV12", 1280, 720, 180, true, {1280, 720}, Way::Identity, Way::Identity, false},
             Case{L"NV12", 1280, 720, 180, false, {1280, 720}, Way::OneWindow, Way::OneWindow, true},
             Case{L"NV12", 1280, 720, 0, true, {1280, 720}, Way::OneWindow, Way::OneWindow, true},
             Case{L"RGBA", 1280, 720, 0, true, {1280, 720}, Way::OneWindow, Way::OneWindow, true},
             Case{L"NV12", 1280, 720, 0, false, {1920, 1080}, Way::OneWindow, Way::OneWindow, true},
             Case{L"NV12", 1920, 1080, 0, false, {1280, 720}, Way::TwoWindows, Way::TwoWindows, true},
             Case{L"NV12", 2560, 1440, 0, false, {1920, 1080}, Way::TwoWindows, Way::TwoWindows, true},
             Case{L"I420", 640, 480, 0, false, {1280, 720}, Way::OneWindow, Way::OneWindow, true},
             Case{L"NV12", 720, 1280, 0, false, {1920, 1080}, Way::TwoWindows, Way::TwoWindows, false},
             // A portrait picture that fills the height of the canvas, and one that fills all of it.
             Case{L"NV12", 1920, 1080, 90, false, {1280, 720}, Way::FourWindows, Way::FourWindows, true},
             Case{L"NV12", 720, 1280, 90, false, {1280, 720}, Way::OneWindow, Way::OneWindow, true},
             Case{L"NV12", 4096, 1024, 0, false, {2, 720}, Way::SampleBySample, Way::SampleBySample, false},
         }) {
        FrameDescriptor frame = TightFrame(known.format, known.width, known.height);
        frame.rotation = known.rotation;
        frame.flipA = known.mirrored;
        if (known.rotation % 180 != 0) {
            frame.displayWidth = known.height;
            frame.displayHeight = known.width;
        }
        const FramePlan plan = PlanOf(frame, known.canvas);
        const auto wayOf = [&](const PlanePlan& plane) {
            return plane.isCopy                             ? Way::Copy
                   : plane.map.identity && !plan.transposed ? Way::Identity
                   : plane.map.windowCount == 1             ? Way::OneWindow
                   : plane.map.windowCount == 2             ? Way::TwoWindows
                   : plane.map.windowCount == 4             ? Way::FourWindows
                                                            : Way::SampleBySample;
        };
        SCOPED_TRACE(std::to_string(known.width) + " x " + std::to_string(known.height) + " rotated " +
                     std::to_string(known.rotation) + " on " + std::to_string(known.canvas.width));
        EXPECT_EQ(known.y, wayOf(plan.y));
        EXPECT_EQ(known.uv, wayOf(plan.uv));
        if (known.y >= Way::OneWindow) {
            EXPECT_EQ(known.repeats, plan.y.map.period > 0);
        }
    }
}

} // namespace
} // namespace receiver
