// A conversion whose geometry stays asks for no memory.
#include "frames/conversion/frame_converter.h"
#include "tests/support/allocation_fault.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <numeric>
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
    for (const RowKernels* const kernels : {&ScalarKernels, &BestKernels()}) {
        for (const std::wstring_view format : {L"NV12", L"I420", L"RGBA", L"BGRX"}) {
            for (const std::uint32_t rotation : {0U, 90U, 180U, 270U}) {
                FrameConverter converter(*kernels);
                FrameCanvas canvas;
                const FrameDescriptor frame = FrameOf(format, rotation);
                ASSERT_EQ(converter.Convert(slot, frame, 1280, 720, canvas), S_OK);
                const std::uint8_t* const bytes = canvas.Frame().bytes.data();

                const AllocationFault fault(0);
                EXPECT_EQ(converter.Convert(slot, frame, 1280, 720, canvas), S_OK);
                EXPECT_FALSE(fault.Happened());
                EXPECT_EQ(canvas.Frame().bytes.data(), bytes);
            }
        }
    }
}

std::vector<std::uint8_t> FreshlyConverted(const std::vector<std::uint8_t>& slot, const FrameDescriptor& frame,
                                           std::uint32_t width, std::uint32_t height) {
    FrameConverter converter;
    FrameCanvas canvas;
    EXPECT_EQ(converter.Convert(slot, frame, width, height, canvas), S_OK);
    return {canvas.Frame().bytes.begin(), canvas.Frame().bytes.end()};
}

// After each failed allocation the converter serves the frame before as if nothing had happened.
TEST(FrameConverterMemory, AnotherGeometryFailsWithoutMemoryAndSucceedsWithIt) {
    std::vector<std::uint8_t> slot(SlotSize);
    std::iota(slot.begin(), slot.end(), std::uint8_t{1});
    const FrameDescriptor usual = FrameOf(L"NV12", 0);
    const std::vector<std::uint8_t> usualBytes = FreshlyConverted(slot, usual, 1280, 720);
    const FrameDescriptor other = FrameOf(L"RGBA", 90);
    const std::vector<std::uint8_t> otherBytes = FreshlyConverted(slot, other, 1920, 1080);
    unsigned allocation = 0;
    for (bool failed = true; failed; ++allocation) {
        ASSERT_LT(allocation, 100U);
        FrameConverter converter;
        FrameCanvas canvas;
        ASSERT_EQ(converter.Convert(slot, usual, 1280, 720, canvas), S_OK);
        {
            const AllocationFault fault(allocation);
            try {
                EXPECT_EQ(converter.Convert(slot, other, 1920, 1080, canvas), S_OK);
                failed = false;
            } catch (const std::bad_alloc&) {
                EXPECT_TRUE(fault.Happened());
            }
        }
        if (failed) {
            ASSERT_EQ(converter.Convert(slot, usual, 1280, 720, canvas), S_OK);
            EXPECT_TRUE(std::ranges::equal(usualBytes, canvas.Frame().bytes)) << "allocation " << allocation;
        }
        ASSERT_EQ(converter.Convert(slot, other, 1920, 1080, canvas), S_OK);
        EXPECT_TRUE(std::ranges::equal(otherBytes, canvas.Frame().bytes)) << "allocation " << allocation;
    }
    EXPECT_GT(allocation, 4U);
}

} // namespace
} // namespace receiver
