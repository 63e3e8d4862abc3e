// A conversion whose geometry stays asks for no memory.
#include "frames/frame_converter.h"
#include "tests/support/allocation_fault.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <string_view>
#include <vector>

namespace receiver {
namespace {

FrameDescriptor FrameOf(std::wstring_view format, std::uint32_t rotation) {
    FrameDescriptor frame;
    frame.format = format;
    frame.codedWidth = 640;
    frame.codedHeight = 480;
    frame.rotation = rotation;
    frame.displayWidth = 640;
    frame.displayHeight = 480;
    frame.planeCount = 3;
    frame.planes = {{{0, 2560}, {600000, 2560}, {900000, 2560}}};
    return frame;
}

TEST(FrameConverterMemory, TheSameGeometryNeedsNoMoreMemory) {
    const std::vector<std::uint8_t> slot(SlotSize, 100);
    for (const FrameKernels* const kernels : {&ScalarKernels, &BestKernels()}) {
        for (const std::wstring_view format : {L"NV12", L"I420", L"RGBA", L"BGRX"}) {
            for (const std::uint32_t rotation : {0U, 90U, 180U, 270U}) {
                FrameConverter converter(*kernels);
                FrameCanvas canvas;
                const FrameDescriptor frame = FrameOf(format, rotation);
                ASSERT_EQ(converter.Convert(slot, frame, 1280, 720, canvas), S_OK);
                const std::uint8_t* const bytes = canvas.Bytes().data();

                const AllocationFault fault(0);
                EXPECT_EQ(converter.Convert(slot, frame, 1280, 720, canvas), S_OK);
                EXPECT_FALSE(fault.Happened());
                EXPECT_EQ(canvas.Bytes().data(), bytes);
            }
        }
    }
}

TEST(FrameConverterMemory, AnotherGeometryFailsWithoutMemoryAndSucceedsWithIt) {
    const std::vector<std::uint8_t> slot(SlotSize, 100);
    FrameConverter converter;
    FrameCanvas canvas;
    ASSERT_EQ(converter.Convert(slot, FrameOf(L"NV12", 0), 1280, 720, canvas), S_OK);
    const FrameDescriptor other = FrameOf(L"RGBA", 90);
    unsigned allocation = 0;
    for (bool failed = true; failed; ++allocation) {
        ASSERT_LT(allocation, 100U);
        const AllocationFault fault(allocation);
        try {
            EXPECT_EQ(converter.Convert(slot, other, 1920, 1080, canvas), S_OK);
            failed = false;
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(fault.Happened());
        }
    }
    EXPECT_GT(allocation, 1U);

    FrameConverter fresh;
    FrameCanvas expected;
    ASSERT_EQ(fresh.Convert(slot, other, 1920, 1080, expected), S_OK);
    EXPECT_TRUE(
        std::equal(expected.Bytes().begin(), expected.Bytes().end(), canvas.Bytes().begin(), canvas.Bytes().end()));
}

} // namespace
} // namespace receiver
