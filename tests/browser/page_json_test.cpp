#include "browser/page_json.h"

#include <gtest/gtest.h>

namespace receiver {
namespace {

TEST(PageJson, ASuccessfulMediaResultCarriesTheEscapedPath) {
    EXPECT_EQ(MediaResultJson(L"snapshot", S_OK, L"C:\\Users\\a\\Videos\\x.mp4"),
              L"{\"type\":\"media-result\",\"action\":\"snapshot\",\"success\":true,"
              L"\"path\":\"C:\\\\Users\\\\a\\\\Videos\\\\x.mp4\",\"error\":0}");
}

TEST(PageJson, ASnapshotBeforeAnyFrameIsNotAvailable) {
    EXPECT_EQ(
        MediaResultJson(L"snapshot", MF_E_NOT_AVAILABLE, L""),
        L"{\"type\":\"media-result\",\"action\":\"snapshot\",\"success\":false,\"path\":\"\",\"error\":3222091478}");
}

TEST(PageJson, CodesAreUnsignedDecimals) {
    EXPECT_EQ(MediaResultJson(L"recording-failed", E_FAIL, L"p"),
              L"{\"type\":\"media-result\",\"action\":\"recording-failed\",\"success\":false,\"path\":\"p\","
              L"\"error\":2147500037}");
    EXPECT_EQ(MediaResultJson(L"recording-started", E_INVALIDARG, L""),
              L"{\"type\":\"media-result\",\"action\":\"recording-started\",\"success\":false,\"path\":\"\","
              L"\"error\":2147942487}");
}

TEST(PageJson, AnySuccessCodeCountsAsSuccess) {
    EXPECT_EQ(
        MediaResultJson(L"recording-stopped", S_FALSE, L""),
        L"{\"type\":\"media-result\",\"action\":\"recording-stopped\",\"success\":true,\"path\":\"\",\"error\":1}");
}

TEST(PageJson, OnlyBackslashAndDoubleQuoteAreEscaped) {
    EXPECT_EQ(MediaResultJson(L"snapshot", S_OK, L"a\"b\\c/d\te\u00E9\u20AC"),
              L"{\"type\":\"media-result\",\"action\":\"snapshot\",\"success\":true,"
              L"\"path\":\"a\\\"b\\\\c/d\te\u00E9\u20AC\",\"error\":0}");
}

TEST(PageJson, SlotsAndUsageAreFixedTexts) {
    EXPECT_EQ(SlotJson(0), L"{\"slot\":0}");
    EXPECT_EQ(SlotJson(1), L"{\"slot\":1}");
    EXPECT_EQ(std::wstring(UsageOnJson), L"{\"type\":\"virtual-camera-usage\",\"active\":true}");
    EXPECT_EQ(std::wstring(UsageOffJson), L"{\"type\":\"virtual-camera-usage\",\"active\":false}");
}

} // namespace
} // namespace receiver
