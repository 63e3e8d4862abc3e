// The table of pixel formats: names, planes, and the limits of the slot.
#include "frames/conversion/pixel_format.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace receiver {
namespace {

constexpr std::uint64_t LargestValue = std::numeric_limits<std::uint64_t>::max();

FrameDescriptor Frame720p(std::wstring_view format) {
    FrameDescriptor frame;
    frame.format = format;
    frame.codedWidth = frame.displayWidth = 1280;
    frame.codedHeight = frame.displayHeight = 720;
    return frame;
}

FrameDescriptor Nv12() {
    FrameDescriptor frame = Frame720p(L"NV12");
    frame.AddPlane({0, 1280});
    frame.AddPlane({921600, 1280});
    return frame;
}

FrameDescriptor I420() {
    FrameDescriptor frame = Frame720p(L"I420");
    frame.AddPlane({0, 1280});
    frame.AddPlane({921600, 640});
    frame.AddPlane({1152000, 640});
    return frame;
}

FrameDescriptor Rgba() {
    FrameDescriptor frame = Frame720p(L"RGBA");
    frame.AddPlane({0, 5120});
    return frame;
}

bool Fits(const FrameDescriptor& frame, std::size_t slotSize) {
    const PixelFormat* const format = FindPixelFormat(frame.format, frame.planeCount);
    return format != nullptr && FitsSlot(frame, *format, slotSize);
}

// A number whose product with `factor`, which must be odd, has the low 64 bits of `product`.
std::uint64_t WrappingQuotient(std::uint64_t product, std::uint64_t factor) {
    std::uint64_t inverse = factor; // right in the low three bits; each step doubles them
    for (int step = 0; step < 5; ++step) {
        inverse *= 2 - factor * inverse;
    }
    return product * inverse;
}
TEST(PixelFormat, FindsTheSevenFormatsWithThePlanesTheyNeed) {
    struct Case {
        std::wstring_view name;
        std::size_t neededPlanes;
    };
    for (const Case& known : {Case{L"NV12", 2}, Case{L"I420", 3}, Case{L"I420A", 3}, Case{L"RGBA", 1}, Case{L"RGBX", 1},
                              Case{L"BGRA", 1}, Case{L"BGRX", 1}}) {
        for (std::size_t planeCount = 0; planeCount < known.neededPlanes; ++planeCount) {
            EXPECT_EQ(nullptr, FindPixelFormat(known.name, planeCount)) << planeCount;
        }
        for (std::size_t planeCount : {known.neededPlanes, known.neededPlanes + 1, std::size_t{10000}}) {
            const PixelFormat* const format = FindPixelFormat(known.name, planeCount);
            ASSERT_NE(nullptr, format) << planeCount;
            EXPECT_EQ(known.name, format->name);
            EXPECT_EQ(known.neededPlanes, format->planeCount);
        }
    }
}

TEST(PixelFormat, FindsNoOtherFormat) {
    using namespace std::string_view_literals;
    for (const std::wstring_view name :
         {L""sv, L"YUY2"sv, L"NV21"sv, L"NV1"sv, L"NV12 "sv, L" NV12"sv, L"NV12A"sv, L"nv12"sv, L"NV12\0"sv, L"I422"sv,
          L"I420B"sv, L"I420AP10"sv, L"i420"sv, L"RGB"sv, L"RGBa"sv, L"ARGB"sv, L"ABGR"sv, L"BGR"sv, L"BGRx"sv}) {
        EXPECT_EQ(nullptr, FindPixelFormat(name, 4)) << std::wstring(name);
    }
}

TEST(PixelFormat, AcceptsPlanesThatEndWithTheSlot) {
    FrameDescriptor frame = Nv12();
    EXPECT_TRUE(Fits(frame, 1382400));
    EXPECT_FALSE(Fits(frame, 1382399));
    EXPECT_TRUE(Fits(I420(), 1382400));
    EXPECT_FALSE(Fits(I420(), 1382399));
    EXPECT_TRUE(Fits(Rgba(), 3686400));
    EXPECT_FALSE(Fits(Rgba(), 3686399));
    EXPECT_FALSE(Fits(frame, 0));

    frame = Rgba();
    frame.codedWidth = 1920;
    frame.codedHeight = 1080;
    frame.planes[0] = {0, 7680};
    EXPECT_TRUE(Fits(frame, SlotSize));
    frame.planes[0] = {1, 7680};
    EXPECT_FALSE(Fits(frame, SlotSize));
    frame.planes[0] = {0, 7681};
    EXPECT_FALSE(Fits(frame, SlotSize));
    frame.planes[0] = {1079, 7679};
    EXPECT_TRUE(Fits(frame, SlotSize));
    frame.planes[0] = {1080, 7679};
    EXPECT_FALSE(Fits(frame, SlotSize));
}

// What follows the last row of a plane need not be there.
TEST(PixelFormat, CountsNoPaddingAfterTheLastRow) {
    FrameDescriptor frame = Rgba();
    frame.planes[0] = {64, 8000};
    EXPECT_TRUE(Fits(frame, 64 + 719 * 8000 + 5120));
    EXPECT_FALSE(Fits(frame, 64 + 719 * 8000 + 5119));
    frame = Nv12();
    frame.planes[1] = {921600, 2000};
    EXPECT_TRUE(Fits(frame, 921600 + 359 * 2000 + 1280));
    EXPECT_FALSE(Fits(frame, 921600 + 359 * 2000 + 1279));
    frame = I420();
    frame.planes[2] = {1152000, 2000};
    EXPECT_TRUE(Fits(frame, 1152000 + 359 * 2000 + 640));
    EXPECT_FALSE(Fits(frame, 1152000 + 359 * 2000 + 639));
}

TEST(PixelFormat, ChecksEveryPlaneThatIsRead) {
    constexpr std::size_t LastYOffset = SlotSize - 921600;
    constexpr std::size_t LastUVOffset = SlotSize - 460800;
    constexpr std::size_t LastUOffset = SlotSize - 230400;
    struct Case {
        FrameDescriptor frame;
        std::size_t plane;
        std::size_t lastOffset;
    };
    for (const Case& edge : {Case{Nv12(), 0, LastYOffset}, Case{Nv12(), 1, LastUVOffset}, Case{I420(), 0, LastYOffset},
                             Case{I420(), 1, LastUOffset}, Case{I420(), 2, LastUOffset}}) {
        FrameDescriptor frame = edge.frame;
        PlaneLayout& plane = frame.planes.at(edge.plane);
        plane.offset = edge.lastOffset;
        EXPECT_TRUE(Fits(frame, SlotSize)) << "plane " << edge.plane;
        plane.offset = edge.lastOffset + 1;
        EXPECT_FALSE(Fits(frame, SlotSize)) << "plane " << edge.plane;
        plane.offset = edge.lastOffset;
        plane.stride += 1;
        EXPECT_FALSE(Fits(frame, SlotSize)) << "plane " << edge.plane;
    }
}

TEST(PixelFormat, IgnoresTheStrideOfASingleRow) {
    FrameDescriptor frame = Nv12();
    frame.codedWidth = 4096;
    frame.codedHeight = 2;
    frame.planes = {{{0, 4096}, {8192, LargestValue}}};
    EXPECT_TRUE(Fits(frame, 12288));
    frame.planes[1].offset = 8193;
    EXPECT_FALSE(Fits(frame, 12288));
}

TEST(PixelFormat, RefusesPlanesWhoseExtentWouldWrap) {
    for (const FrameDescriptor& good : {Nv12(), I420(), Rgba()}) {
        ASSERT_TRUE(Fits(good, SlotSize));
        for (std::size_t plane = 0; plane < good.planeCount; ++plane) {
            const std::uint64_t rowsBefore = plane == 0 ? 719 : 359;
            const std::uint64_t lowWords = std::uint64_t{1} << 32;
            for (const std::uint64_t offset :
                 {LargestValue, LargestValue - 1, LargestValue - 5119, LargestValue - 3686399, LargestValue - 921599,
                  LargestValue - 460799, LargestValue - 230399, LargestValue / 2 + 1, lowWords, lowWords + 16}) {
                FrameDescriptor frame = good;
                frame.planes.at(plane).offset = offset;
                EXPECT_FALSE(Fits(frame, SlotSize)) << "plane " << plane << " offset " << offset;
            }
            for (const std::uint64_t stride :
                 {LargestValue, LargestValue / 2 + 1, LargestValue / rowsBefore, LargestValue / rowsBefore + 1,
                  LargestValue / (rowsBefore + 1) + 1, lowWords, lowWords + 1280, WrappingQuotient(1, rowsBefore),
                  WrappingQuotient(1280, rowsBefore), WrappingQuotient(LargestValue - 100, rowsBefore)}) {
                FrameDescriptor frame = good;
                frame.planes.at(plane).stride = stride;
                EXPECT_FALSE(Fits(frame, SlotSize)) << "plane " << plane << " stride " << stride;
                // The offset and the rows before the last wrap to the start of the slot together.
                frame.planes.at(plane).offset = 0 - rowsBefore * stride;
                EXPECT_FALSE(Fits(frame, SlotSize)) << "plane " << plane << " both " << stride;
            }
        }
    }
}

} // namespace
} // namespace receiver
