#include "capture/capture_name.h"

#include <gtest/gtest.h>

namespace receiver {
namespace {

TEST(CaptureNameTest, ContainsTheTimeInMilliseconds) {
    EXPECT_EQ(CaptureFileName({2024, 3, 5, 14, 27, 9, 42}, L"jpg"), L"Vistel-20240305-142709-042.jpg");
    EXPECT_EQ(CaptureFileName({2026, 12, 31, 23, 59, 59, 999}, L"mp4"), L"Vistel-20261231-235959-999.mp4");
}

TEST(CaptureNameTest, EveryFieldKeepsItsWidth) {
    EXPECT_EQ(CaptureFileName({2027, 1, 1, 0, 0, 0, 0}, L"mp4"), L"Vistel-20270101-000000-000.mp4");
    EXPECT_EQ(CaptureFileName({1601, 9, 8, 7, 6, 5, 4}, L"jpg"), L"Vistel-16010908-070605-004.jpg");
    EXPECT_EQ(CaptureFileName({30827, 10, 11, 12, 13, 14, 15}, L"jpg"), L"Vistel-308271011-121314-015.jpg");
}

} // namespace
} // namespace receiver
