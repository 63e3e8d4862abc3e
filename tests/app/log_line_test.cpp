#include "app/log_line.h"

#include "tests/support/guarded_bytes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

namespace receiver {
namespace {

constexpr TimeOfDay Afternoon{14, 3, 7};
constexpr HRESULT AccessDenied = static_cast<HRESULT>(0x80070005);

TEST(LogLine, HasATwoDigitTimeTwoSpacesAndTheMessage) {
    EXPECT_EQ(FormatLogLine(Afternoon, L"Receiver starting", S_OK), "14:03:07  Receiver starting");
    EXPECT_EQ(FormatLogLine({0, 0, 0}, L"", S_OK), "00:00:00  ");
    EXPECT_EQ(FormatLogLine({23, 59, 59}, L"x", S_OK), "23:59:59  x");
}

TEST(LogLine, AFailureCodeFollowsInUpperCaseHexadecimal) {
    EXPECT_EQ(FormatLogLine(Afternoon, L"LOCALAPPDATA is unavailable.", AccessDenied),
              "14:03:07  LOCALAPPDATA is unavailable. (HRESULT 0x80070005)");
    EXPECT_EQ(FormatLogLine(Afternoon, L"m", static_cast<HRESULT>(0xC00D36D6)), "14:03:07  m (HRESULT 0xC00D36D6)");
    EXPECT_EQ(FormatLogLine(Afternoon, L"m", -1), "14:03:07  m (HRESULT 0xFFFFFFFF)");
}

TEST(LogLine, ASuccessCodeIsNotPrinted) {
    EXPECT_EQ(FormatLogLine(Afternoon, L"m", S_FALSE), "14:03:07  m");
    EXPECT_EQ(FormatLogLine(Afternoon, L"m", 0x7FFFFFFF), "14:03:07  m");
}

TEST(LogLine, ACharacterBelow256IsOneByteAndAnyOtherAQuestionMark) {
    EXPECT_EQ(FormatLogLine(Afternoon, L"\u00E9\u00FF", S_OK), "14:03:07  \xE9\xFF");
    EXPECT_EQ(FormatLogLine(Afternoon, L"a\u0100b\u20ACc", S_OK), "14:03:07  a?b?c");
}

TEST(LogLine, AControlCharacterIsAQuestionMark) {
    EXPECT_EQ(FormatLogLine(Afternoon, L"a\r\n14:03:08  forged", S_OK), "14:03:07  a??14:03:08  forged");
    EXPECT_EQ(FormatLogLine(Afternoon, std::wstring(L"\x1F\t\0", 3), S_OK), "14:03:07  ???");
    EXPECT_EQ(FormatLogLine(Afternoon, L" \x7F", S_OK), "14:03:07   \x7F");
}

TEST(LogLine, ASurrogatePairAndAnUnpairedSurrogateAreOneCharacterEach) {
    const std::wstring pair = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    const std::wstring high = pair.substr(0, 1);
    const std::wstring low = pair.substr(1);
    EXPECT_EQ(FormatLogLine(Afternoon, L"a" + pair + L"b", S_OK), "14:03:07  a?b");
    EXPECT_EQ(FormatLogLine(Afternoon, L"a" + high + L"b" + low, S_OK), "14:03:07  a?b?");
    EXPECT_EQ(FormatLogLine(Afternoon, low + high, S_OK), "14:03:07  ??");
    EXPECT_EQ(FormatLogLine(Afternoon, high + pair, S_OK), "14:03:07  ??");
}

TEST(LogLine, APairIsD800ToDBFFAndThenDC00ToDFFF) {
    const auto lineOf = [](unsigned first, unsigned second) {
        return FormatLogLine(Afternoon, std::wstring{static_cast<wchar_t>(first), static_cast<wchar_t>(second)}, S_OK);
    };
    for (const unsigned first : {0xD800U, 0xDBFFU}) {
        for (const unsigned second : {0xDC00U, 0xDFFFU}) {
            EXPECT_EQ(lineOf(first, second), "14:03:07  ?") << first << ' ' << second;
        }
        for (const unsigned second : {0xDBFFU, 0xE000U}) {
            EXPECT_EQ(lineOf(first, second), "14:03:07  ??") << first << ' ' << second;
        }
    }
    for (const unsigned first : {0xD7FFU, 0xDC00U}) {
        EXPECT_EQ(lineOf(first, 0xDC00), "14:03:07  ??") << first;
    }
}

TEST(LogLine, NothingIsReadAfterAFirstHalfAtTheEnd) {
    constexpr wchar_t First = 0xD83D;
    const GuardedBytes memory(sizeof(First));
    const std::span<std::uint8_t> bytes = memory.Last(sizeof(First));
    std::memcpy(bytes.data(), &First, sizeof(First));
    EXPECT_EQ(FormatLogLine(Afternoon, {reinterpret_cast<const wchar_t*>(bytes.data()), 1}, S_OK), "14:03:07  ?");
}

TEST(LogLine, ALongMessageIsNotCut) {
    const std::wstring message(1'000'000, L'm');
    EXPECT_EQ(FormatLogLine(Afternoon, message, AccessDenied).size(), 10 + message.size() + 21);
}

} // namespace
} // namespace receiver
