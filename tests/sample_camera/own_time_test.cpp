// The time of a stream without a clock.
#include "sample_camera/own_time.h"

#include <gtest/gtest.h>

namespace sample_camera {
namespace {

TEST(OwnTime, StandsStillWhilePaused) {
    OwnTime time;
    EXPECT_EQ(time.Run(1000), 1000) << "begins at 0";
    time.Pause(1300);
    const std::int64_t start = time.Run(5000);
    EXPECT_EQ(5000 - start, 300) << "continues";
    time.Pause(5100);
    EXPECT_EQ(9000 - time.Run(9000), 400);
}

} // namespace
} // namespace sample_camera
