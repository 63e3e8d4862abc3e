// The plan of a conversion: recognised formats, geometry, the limits of the slot, the fitted picture and the addresses.
#include "frames/frame_plan.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {

// For the messages of failed tests.
static void PrintTo(const PictureRectangle& picture, std::ostream* stream) {
    *stream << picture.width << " x " << picture.height << " at " << picture.x << ", " << picture.y;
}

static bool operator==(const PictureRectangle& left, const PictureRectangle& right) {
    return left.x == right.x && left.y == right.y && left.width == right.width && left.height == right.height;
}

namespace {

constexpr std::uint64_t LargestValue = std::numeric_limits<std::uint64_t>::max();

struct CanvasSize {
    std::uint32_t width;
    std::uint32_t height;
};
constexpr CanvasSize Canvases[] = {{1280, 720}, {1920, 1080}};

FrameGeometry Nv12Geometry() {
    FrameGeometry geometry;
    geometry.layout = PixelLayout::Nv12;
    geometry.codedWidth = geometry.displayWidth = geometry.canvasWidth = 1280;
    geometry.codedHeight = geometry.displayHeight = geometry.canvasHeight = 720;
    geometry.planes = {{{0, 1280}, {921600, 1280}, {}}};
    return geometry;
}

FrameGeometry PlanarGeometry() {
    FrameGeometry geometry = Nv12Geometry();
    geometry.layout = PixelLayout::Planar;
    geometry.planes = {{{0, 1280}, {921600, 640}, {1152000, 640}}};
    return geometry;
}

FrameGeometry PackedGeometry() {
    FrameGeometry geometry = Nv12Geometry();
    geometry.layout = PixelLayout::Rgba;
    geometry.planes = {{{0, 5120}, {}, {}}};
    return geometry;
}

// A number whose product with `factor`, which must be odd, has the low 64 bits of `product`.
std::uint64_t WrappingQuotient(std::uint64_t product, std::uint64_t factor) {
    std::uint64_t inverse = factor; // right in the low three bits; each step doubles them
    for (int step = 0; step < 5; ++step) {
        inverse *= 2 - factor * inverse;
    }
    return product * inverse;
}

TEST(FramePlan, RecognizesTheSevenFormatsWithThePlanesTheyNeed) {
    struct Case {
        std::wstring_view format;
        std::size_t neededPlanes;
        PixelLayout layout;
    };
    for (const Case& known : {Case{L"NV12", 2, PixelLayout::Nv12}, Case{L"I420", 3, PixelLayout::Planar},
                              Case{L"I420A", 3, PixelLayout::Planar}, Case{L"RGBA", 1, PixelLayout::Rgba},
                              Case{L"RGBX", 1, PixelLayout::Rgba}, Case{L"BGRA", 1, PixelLayout::Bgra},
                              Case{L"BGRX", 1, PixelLayout::Bgra}}) {
        for (std::size_t planeCount = 0; planeCount < known.neededPlanes; ++planeCount) {
            EXPECT_FALSE(RecognizeFormat(known.format, planeCount)) << planeCount;
        }
        for (std::size_t planeCount : {known.neededPlanes, known.neededPlanes + 1, std::size_t{10000}}) {
            EXPECT_EQ(known.layout, RecognizeFormat(known.format, planeCount)) << planeCount;
        }
    }
}

TEST(FramePlan, RecognizesNoOtherFormat) {
    using namespace std::string_view_literals;
    for (const std::wstring_view format :
         {L""sv, L"YUY2"sv, L"NV21"sv, L"NV1"sv, L"NV12 "sv, L" NV12"sv, L"NV12A"sv, L"nv12"sv, L"NV12\0"sv, L"I422"sv,
          L"I420B"sv, L"I420AP10"sv, L"i420"sv, L"RGB"sv, L"RGBa"sv, L"ARGB"sv, L"ABGR"sv, L"BGR"sv, L"BGRx"sv}) {
        EXPECT_FALSE(RecognizeFormat(format, 4)) << std::wstring(format);
    }
}

TEST(FramePlan, MirrorsWhenExactlyOneFlipIsSet) {
    FrameDescriptor descriptor;
    descriptor.format = L"RGBA";
    descriptor.AddPlane({0, 8});
    for (const bool flipA : {false, true}) {
        for (const bool flipB : {false, true}) {
            descriptor.flipA = flipA;
            descriptor.flipB = flipB;
            EXPECT_EQ(flipA != flipB, MakeGeometry(descriptor, PixelLayout::Rgba, 1280, 720).mirrored);
        }
    }
}

TEST(FramePlan, TakesTheGeometryFromTheDescriptorAndLeavesUnusedPlanesOut) {
    FrameDescriptor descriptor;
    descriptor.codedWidth = 640;
    descriptor.codedHeight = 480;
    descriptor.rotation = 270;
    descriptor.flipB = true;
    descriptor.displayWidth = 641;
    descriptor.displayHeight = 479;
    descriptor.planeCount = 4;
    descriptor.planes = {{{1, 650}, {2, 330}, {3, 340}, {4, 660}}};
    FrameGeometry expected;
    expected.codedWidth = 640;
    expected.codedHeight = 480;
    expected.rotation = 270;
    expected.mirrored = true;
    expected.displayWidth = 641;
    expected.displayHeight = 479;
    expected.canvasWidth = 1920;
    expected.canvasHeight = 1080;

    expected.layout = PixelLayout::Planar;
    expected.planes = {{{1, 650}, {2, 330}, {3, 340}}};
    EXPECT_TRUE(expected == MakeGeometry(descriptor, PixelLayout::Planar, 1920, 1080));
    expected.layout = PixelLayout::Nv12;
    expected.planes = {{{1, 650}, {2, 330}, {}}};
    EXPECT_TRUE(expected == MakeGeometry(descriptor, PixelLayout::Nv12, 1920, 1080));
    expected.layout = PixelLayout::Bgra;
    expected.planes = {{{1, 650}, {}, {}}};
    EXPECT_TRUE(expected == MakeGeometry(descriptor, PixelLayout::Bgra, 1920, 1080));
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

TEST(FramePlan, KeepsEveryPictureEvenCentredAndInsideTheCanvas) {
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

TEST(FramePlan, AcceptsPlanesThatEndWithTheSlot) {
    FrameGeometry geometry = Nv12Geometry();
    EXPECT_TRUE(FitsSlot(geometry, 1382400));
    EXPECT_FALSE(FitsSlot(geometry, 1382399));
    EXPECT_TRUE(FitsSlot(PlanarGeometry(), 1382400));
    EXPECT_FALSE(FitsSlot(PlanarGeometry(), 1382399));
    EXPECT_TRUE(FitsSlot(PackedGeometry(), 3686400));
    EXPECT_FALSE(FitsSlot(PackedGeometry(), 3686399));
    EXPECT_FALSE(FitsSlot(geometry, 0));

    geometry = PackedGeometry();
    geometry.codedWidth = 1920;
    geometry.codedHeight = 1080;
    geometry.planes[0] = {0, 7680};
    EXPECT_TRUE(FitsSlot(geometry, SlotSize));
    geometry.planes[0] = {1, 7680};
    EXPECT_FALSE(FitsSlot(geometry, SlotSize));
    geometry.planes[0] = {0, 7681};
    EXPECT_FALSE(FitsSlot(geometry, SlotSize));
    geometry.planes[0] = {1079, 7679};
    EXPECT_TRUE(FitsSlot(geometry, SlotSize));
    geometry.planes[0] = {1080, 7679};
    EXPECT_FALSE(FitsSlot(geometry, SlotSize));
}

// What follows the last row of a plane need not be there.
TEST(FramePlan, CountsNoPaddingAfterTheLastRow) {
    FrameGeometry geometry = PackedGeometry();
    geometry.planes[0] = {64, 8000};
    EXPECT_TRUE(FitsSlot(geometry, 64 + 719 * 8000 + 5120));
    EXPECT_FALSE(FitsSlot(geometry, 64 + 719 * 8000 + 5119));
    geometry = Nv12Geometry();
    geometry.planes[1] = {921600, 2000};
    EXPECT_TRUE(FitsSlot(geometry, 921600 + 359 * 2000 + 1280));
    EXPECT_FALSE(FitsSlot(geometry, 921600 + 359 * 2000 + 1279));
    geometry = PlanarGeometry();
    geometry.planes[2] = {1152000, 2000};
    EXPECT_TRUE(FitsSlot(geometry, 1152000 + 359 * 2000 + 640));
    EXPECT_FALSE(FitsSlot(geometry, 1152000 + 359 * 2000 + 639));
}

TEST(FramePlan, ChecksEveryPlaneThatIsDrawn) {
    constexpr std::size_t LastLumaOffset = SlotSize - 921600;
    constexpr std::size_t LastNv12ChromaOffset = SlotSize - 460800;
    constexpr std::size_t LastPlanarChromaOffset = SlotSize - 230400;
    struct Case {
        FrameGeometry geometry;
        std::size_t plane;
        std::size_t lastOffset;
    };
    for (const Case& edge :
         {Case{Nv12Geometry(), 0, LastLumaOffset}, Case{Nv12Geometry(), 1, LastNv12ChromaOffset},
          Case{PlanarGeometry(), 0, LastLumaOffset}, Case{PlanarGeometry(), 1, LastPlanarChromaOffset},
          Case{PlanarGeometry(), 2, LastPlanarChromaOffset}}) {
        FrameGeometry geometry = edge.geometry;
        PlaneLayout& plane = geometry.planes.at(edge.plane);
        plane.offset = edge.lastOffset;
        EXPECT_TRUE(FitsSlot(geometry, SlotSize)) << "plane " << edge.plane;
        plane.offset = edge.lastOffset + 1;
        EXPECT_FALSE(FitsSlot(geometry, SlotSize)) << "plane " << edge.plane;
        plane.offset = edge.lastOffset;
        plane.stride += 1;
        EXPECT_FALSE(FitsSlot(geometry, SlotSize)) << "plane " << edge.plane;
    }
}

TEST(FramePlan, HasNoUseForTheStrideOfASingleRow) {
    FrameGeometry geometry = Nv12Geometry();
    geometry.codedWidth = 4096;
    geometry.codedHeight = 2;
    geometry.planes = {{{0, 4096}, {8192, LargestValue}, {}}};
    EXPECT_TRUE(FitsSlot(geometry, 12288));
    geometry.planes[1].offset = 8193;
    EXPECT_FALSE(FitsSlot(geometry, 12288));
}

TEST(FramePlan, RefusesPlanesWhoseExtentWouldWrap) {
    for (const FrameGeometry& good : {Nv12Geometry(), PlanarGeometry(), PackedGeometry()}) {
        ASSERT_TRUE(FitsSlot(good, SlotSize));
        const std::size_t planeCount = good.layout == PixelLayout::Planar ? 3
                                       : good.layout == PixelLayout::Nv12 ? 2
                                                                          : 1;
        for (std::size_t plane = 0; plane < planeCount; ++plane) {
            const std::uint64_t rowsBefore = plane == 0 ? 719 : 359;
            const std::uint64_t lowWords = std::uint64_t{1} << 32;
            for (const std::uint64_t offset :
                 {LargestValue, LargestValue - 1, LargestValue - 5119, LargestValue - 3686399, LargestValue - 921599,
                  LargestValue - 460799, LargestValue - 230399, LargestValue / 2 + 1, lowWords, lowWords + 16}) {
                FrameGeometry geometry = good;
                geometry.planes.at(plane).offset = offset;
                EXPECT_FALSE(FitsSlot(geometry, SlotSize)) << "plane " << plane << " offset " << offset;
            }
            for (const std::uint64_t stride :
                 {LargestValue, LargestValue / 2 + 1, LargestValue / rowsBefore, LargestValue / rowsBefore + 1,
                  LargestValue / (rowsBefore + 1) + 1, lowWords, lowWords + 1280, WrappingQuotient(1, rowsBefore),
                  WrappingQuotient(1280, rowsBefore), WrappingQuotient(LargestValue - 100, rowsBefore)}) {
                FrameGeometry geometry = good;
                geometry.planes.at(plane).stride = stride;
                EXPECT_FALSE(FitsSlot(geometry, SlotSize)) << "plane " << plane << " stride " << stride;
                // The offset and the rows before the last wrap to the start of the slot together.
                geometry.planes.at(plane).offset = 0 - rowsBefore * stride;
                EXPECT_FALSE(FitsSlot(geometry, SlotSize)) << "plane " << plane << " both " << stride;
            }
        }
    }
}

// Expects the plan to have `width` x `height` samples and sample (i, j) at source(i, j).
template <typename Source>
void ExpectAddresses(const SampleAddresses& addresses, std::size_t width, std::size_t height, Source source) {
    ASSERT_EQ(width, addresses.x.size());
    ASSERT_EQ(height, addresses.y.size());
    for (std::uint32_t j = 0; j < height; ++j) {
        for (std::uint32_t i = 0; i < width; ++i) {
            ASSERT_EQ(source(i, j), addresses.x[i] + addresses.y[j]) << i << ", " << j;
        }
    }
}

TEST(FramePlan, AddressesAnUnscaledPictureByteForByte) {
    FramePlan plan;
    BuildPlan(Nv12Geometry(), plan);
    EXPECT_TRUE(Nv12Geometry() == plan.geometry);
    EXPECT_EQ((PictureRectangle{0, 0, 1280, 720}), plan.picture);
    ExpectAddresses(plan.luma, 1280, 720, [](std::uint32_t i, std::uint32_t j) { return j * 1280 + i; });
    ExpectAddresses(plan.chromaU, 640, 360, [](std::uint32_t i, std::uint32_t j) { return 921600 + j * 1280 + i * 2; });

    BuildPlan(PlanarGeometry(), plan);
    ExpectAddresses(plan.luma, 1280, 720, [](std::uint32_t i, std::uint32_t j) { return j * 1280 + i; });
    ExpectAddresses(plan.chromaU, 640, 360, [](std::uint32_t i, std::uint32_t j) { return 921600 + j * 640 + i; });
    ExpectAddresses(plan.chromaV, 640, 360, [](std::uint32_t i, std::uint32_t j) { return 1152000 + j * 640 + i; });

    BuildPlan(PackedGeometry(), plan);
    ExpectAddresses(plan.luma, 1280, 720, [](std::uint32_t i, std::uint32_t j) { return j * 5120 + i * 4; });
}

TEST(FramePlan, ReadsTheLeftmostColumnOfAQuarterTurnFromTheBottomRow) {
    FrameGeometry geometry = Nv12Geometry();
    geometry.rotation = 90;
    FramePlan plan;
    BuildPlan(geometry, plan);
    ASSERT_EQ(1280U, plan.luma.x.size());
    ASSERT_EQ(720U, plan.luma.y.size());
    for (std::uint32_t j = 0; j < 720; ++j) {
        ASSERT_EQ(719 * 1280 + j * 1280 / 720, plan.luma.x[0] + plan.luma.y[j]) << "row " << j;
    }
    ASSERT_EQ(0U, plan.luma.x[1279] + plan.luma.y[0]);
}

TEST(FramePlan, MirrorsAlongTheRotatedWidth) {
    FrameGeometry geometry = Nv12Geometry();
    geometry.mirrored = true;
    FramePlan plan;
    BuildPlan(geometry, plan);
    ExpectAddresses(plan.luma, 1280, 720, [](std::uint32_t i, std::uint32_t j) { return j * 1280 + 1279 - i; });
    ExpectAddresses(plan.chromaU, 640, 360,
                    [](std::uint32_t i, std::uint32_t j) { return 921600 + j * 1280 + (1279 - i * 2) / 2 * 2; });
}

TEST(FramePlan, BuiltAnewKeepsNothingOfALargerPicture) {
    FramePlan plan;
    BuildPlan(PlanarGeometry(), plan);
    FrameGeometry narrow = PlanarGeometry();
    narrow.displayWidth = 1;
    narrow.displayHeight = 4096;
    BuildPlan(narrow, plan);
    EXPECT_TRUE(narrow == plan.geometry);
    EXPECT_EQ((PictureRectangle{638, 0, 2, 720}), plan.picture);
    ExpectAddresses(plan.luma, 2, 720, [](std::uint32_t i, std::uint32_t j) { return j * 1280 + i * 640; });
    ExpectAddresses(plan.chromaU, 1, 360, [](std::uint32_t, std::uint32_t j) { return 921600 + j * 640; });
    ExpectAddresses(plan.chromaV, 1, 360, [](std::uint32_t, std::uint32_t j) { return 1152000 + j * 640; });
}

} // namespace
} // namespace receiver
