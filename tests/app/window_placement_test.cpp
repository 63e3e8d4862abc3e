#include "app/window_placement.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>

namespace receiver {

void PrintTo(const WindowRectangle& rectangle, std::ostream* stream) {
    *stream << rectangle.left << ' ' << rectangle.top << ' ' << rectangle.right << ' ' << rectangle.bottom;
}

namespace {

constexpr WindowRectangle FullHd{0, 0, 1920, 1040};

struct Placement {
    const char* name;
    WindowRectangle current;
    std::int32_t width;
    std::int32_t height;
    WindowRectangle workArea;
    WindowRectangle expected;
};

class WindowPlacementTest : public testing::TestWithParam<Placement> {};

TEST_P(WindowPlacementTest, IsCenteredInsideTheWorkArea) {
    const Placement& placement = GetParam();
    EXPECT_EQ(PlaceWindow(placement.current, placement.width, placement.height, placement.workArea),
              placement.expected);
}

INSTANTIATE_TEST_SUITE_P(
    WindowPlacement, WindowPlacementTest,
    testing::Values(
        Placement{"SameSize", {580, 260, 1340, 780}, 760, 520, FullHd, {580, 260, 1340, 780}},
        Placement{"Larger", {580, 260, 1340, 780}, 976, 579, FullHd, {472, 231, 1448, 810}},
        Placement{"Taller", {580, 260, 1340, 780}, 466, 839, FullHd, {727, 101, 1193, 940}},
        // Each half is rounded down on its own: 101 / 2 = 50 and 51 / 2 = 25.
        Placement{"OddNowAndThen", {100, 100, 201, 201}, 51, 51, FullHd, {125, 125, 176, 176}},
        Placement{"OddNow", {100, 100, 201, 201}, 50, 50, FullHd, {125, 125, 175, 175}},
        Placement{"OddThen", {100, 100, 200, 200}, 51, 51, FullHd, {125, 125, 176, 176}},
        Placement{"OddAtNegativePlace",
                  {-201, -101, -100, -50},
                  50,
                  20,
                  {-500, -500, 500, 500},
                  {-176, -86, -126, -66}},
        // An inverted rectangle: -3 / 2 = -1.
        Placement{"InvertedNow", {103, 103, 100, 100}, 10, 10, FullHd, {97, 97, 107, 107}},
        Placement{"AtTheLeftTopLimit", {0, 0, 300, 200}, 300, 200, FullHd, {0, 0, 300, 200}},
        Placement{"OneBeyondTheLeftTopLimit", {-1, -1, 299, 199}, 300, 200, FullHd, {0, 0, 300, 200}},
        Placement{"AtTheRightBottomLimit", {1620, 840, 1920, 1040}, 300, 200, FullHd, {1620, 840, 1920, 1040}},
        Placement{"OneBeyondTheRightBottomLimit", {1621, 841, 1921, 1041}, 300, 200, FullHd, {1620, 840, 1920, 1040}},
        Placement{"GrowsOverTheLeftTop", {0, 0, 100, 100}, 300, 200, FullHd, {0, 0, 300, 200}},
        Placement{"GrowsOverTheRightBottom", {1820, 940, 1920, 1040}, 300, 200, FullHd, {1620, 840, 1920, 1040}},
        Placement{"FarAway", {5000, -4000, 5760, -3480}, 976, 579, FullHd, {944, 0, 1920, 579}},
        Placement{"WorkAreaOf700Rows", {260, 90, 1020, 610}, 466, 839, {0, 0, 1280, 700}, {407, 0, 873, 700}},
        Placement{"WorkAreaOf700RowsBelowATaskBar",
                  {260, 90, 1020, 610},
                  466,
                  839,
                  {0, 40, 1280, 740},
                  {407, 40, 873, 740}},
        Placement{"ExactlyTheWorkArea", {260, 90, 1020, 610}, 1280, 700, {0, 20, 1280, 720}, {0, 20, 1280, 720}},
        Placement{"OneLargerThanTheWorkArea", {260, 90, 1020, 610}, 1281, 701, {0, 20, 1280, 720}, {0, 20, 1280, 720}},
        Placement{"OneSmallerThanTheWorkArea", {260, 90, 1020, 610}, 1279, 699, {0, 20, 1280, 720}, {1, 20, 1280, 719}},
        Placement{"NarrowWorkArea", {260, 90, 1020, 610}, 976, 579, {100, 0, 500, 1000}, {100, 61, 500, 640}},
        Placement{"MonitorOnTheLeft", {-1500, 100, -740, 620}, 466, 839, {-1920, 0, 0, 1040}, {-1353, 0, -887, 839}},
        Placement{"MonitorAbove", {100, -600, 860, -80}, 976, 579, {0, -1080, 1920, -40}, {0, -629, 976, -50}},
        Placement{"NothingLeft", {100, 100, 200, 200}, 300, 200, {50, 60, 50, 60}, {50, 60, 50, 60}}),
    [](const auto& test) { return test.param.name; });

} // namespace
} // namespace receiver
