#include "sample_camera/frame_choice.h"

#include "sample_camera/video_format.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace sample_camera {
namespace {

constexpr std::int64_t Ms = 10000;

TEST(FrameChoice, DeliversEachNewLiveFrameAtOnce) {
    FrameChoice choice(ShortestInterval100ns);
    for (const std::int64_t now : {0 * Ms, 2 * Ms, 4 * Ms, 40 * Ms}) {
        EXPECT_TRUE(choice.IsTimeToLook(now));
        EXPECT_EQ(choice.Choose(true, true, now), Delivery::Frame);
    }
    EXPECT_EQ(choice.Choose(false, true, 42 * Ms), Delivery::Nothing);
    EXPECT_TRUE(choice.IsTimeToLook(42 * Ms));
}

TEST(FrameChoice, ASlowerRateIsASchedule) {
    FrameChoice choice(100 * Ms);
    EXPECT_EQ(choice.Choose(true, true, 1000 * Ms), Delivery::Frame);
    EXPECT_FALSE(choice.IsTimeToLook(1099 * Ms));
    EXPECT_TRUE(choice.IsTimeToLook(1100 * Ms));
    EXPECT_EQ(choice.Choose(false, true, 1100 * Ms), Delivery::Nothing);
    EXPECT_EQ(choice.Choose(true, true, 1110 * Ms), Delivery::Frame);
    EXPECT_FALSE(choice.IsTimeToLook(1199 * Ms));
    EXPECT_TRUE(choice.IsTimeToLook(1200 * Ms)) << "a late frame does not shift the schedule";
    EXPECT_EQ(choice.Choose(true, true, 5000 * Ms), Delivery::Frame);
    EXPECT_FALSE(choice.IsTimeToLook(5099 * Ms)) << "missed frames are not made up for";
}

TEST(FrameChoice, WithoutALivePictureTheCardComesAtTheRequestedRate) {
    FrameChoice choice(ShortestInterval100ns);
    EXPECT_EQ(choice.Choose(true, true, 1000 * Ms), Delivery::Frame);
    EXPECT_EQ(choice.Choose(false, false, 1002 * Ms), Delivery::Nothing) << "the last frame has its time";
    EXPECT_FALSE(choice.IsTimeToLook(1004 * Ms));
    EXPECT_TRUE(choice.IsTimeToLook(1034 * Ms));
    EXPECT_EQ(choice.Choose(false, false, 1034 * Ms), Delivery::Card);
    EXPECT_EQ(choice.Choose(true, false, 1036 * Ms), Delivery::Nothing) << "a new frame that is stale is no picture";
    EXPECT_EQ(choice.Choose(true, false, 1067 * Ms), Delivery::Card);
    EXPECT_EQ(choice.Choose(true, true, 1068 * Ms), Delivery::Frame);
    EXPECT_TRUE(choice.IsTimeToLook(1069 * Ms));
}

} // namespace
} // namespace sample_camera
