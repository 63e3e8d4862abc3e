#include "browser/page_json.h"

#include <gtest/gtest.h>

#include <string>

namespace receiver {
namespace {

TEST(PageJson, ASuccessfulMediaResultContainsTheEscapedPath) {
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

TEST(PageJson, DiagnosticsAreOneLineInFixedOrder) {
    EXPECT_EQ(DiagnosticsJson({10, 0, 22631}, true),
              L"{\"type\":\"diagnostics\",\"diagnostics\":{\"windowsVersion\":\"10.0.22631\",\"buildNumber\":22631,"
              L"\"architecture\":\"x64\",\"osSupported\":true,\"webView2Ready\":true,"
              L"\"virtualCameraRegistered\":true,\"appVersion\":\"0.1.3\"}}");
    EXPECT_EQ(DiagnosticsJson({}, false),
              L"{\"type\":\"diagnostics\",\"diagnostics\":{\"windowsVersion\":\"0.0.0\",\"buildNumber\":0,"
              L"\"architecture\":\"x64\",\"osSupported\":false,\"webView2Ready\":true,"
              L"\"virtualCameraRegistered\":false,\"appVersion\":\"0.1.3\"}}");
}

TEST(PageJson, SupportedIsMajorVersion10OrLaterWithBuild22000OrLater) {
    struct {
        OsVersion version;
        const wchar_t* text;
    } const cases[] = {
        {{10, 0, 21999}, L"\"10.0.21999\",\"buildNumber\":21999,\"architecture\":\"x64\",\"osSupported\":false,"},
        {{10, 0, 22000}, L"\"10.0.22000\",\"buildNumber\":22000,\"architecture\":\"x64\",\"osSupported\":true,"},
        {{10, 0, 22001}, L"\"10.0.22001\",\"buildNumber\":22001,\"architecture\":\"x64\",\"osSupported\":true,"},
        {{9, 9, 22000}, L"\"9.9.22000\",\"buildNumber\":22000,\"architecture\":\"x64\",\"osSupported\":false,"},
        {{11, 2, 22000}, L"\"11.2.22000\",\"buildNumber\":22000,\"architecture\":\"x64\",\"osSupported\":true,"},
        {{11, 0, 21999}, L"\"11.0.21999\",\"buildNumber\":21999,\"architecture\":\"x64\",\"osSupported\":false,"},
        {{4294967295, 4294967295, 4294967295},
         L"\"4294967295.4294967295.4294967295\",\"buildNumber\":4294967295,\"architecture\":\"x64\","
         L"\"osSupported\":true,"},
    };
    for (const auto& example : cases) {
        const std::wstring json = DiagnosticsJson(example.version, true);
        EXPECT_NE(json.find(std::wstring(L":") + example.text), std::wstring::npos) << testing::PrintToString(json);
    }
}

} // namespace
} // namespace receiver
