// ParseFrameDescriptor: the grammar of the frame message and each of its limits.
#include "frames/frame_message.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace receiver {
namespace {

constexpr std::size_t FieldCount = 8;

enum Field : std::size_t { Format, CodedWidth, CodedHeight, FlipA, Rotation, FlipB, DisplayWidth, DisplayHeight };

// The fields of a valid message; a test replaces one of them by an invalid text.
struct Message {
    std::array<std::wstring, FieldCount> fields = {L"NV12", L"1280", L"720", L"0", L"0", L"0", L"1280", L"720"};
    std::wstring planes = L"0,1280;921600,1280";

    [[nodiscard]] std::wstring Text() const {
        std::wstring text;
        for (const std::wstring& field : fields) {
            text += field + L":";
        }
        return text + planes;
    }
};

// Parses a copy of exactly the text's size, so that the address sanitizer detects a read past its end. The last copy is
// kept, because the descriptor's format points into it.
bool Parse(std::wstring_view text, FrameDescriptor& descriptor) {
    static std::vector<wchar_t> copy;
    copy = std::vector<wchar_t>(text.begin(), text.end());
    return ParseFrameDescriptor({copy.data(), copy.size()}, descriptor);
}

bool Parses(std::wstring_view text) {
    FrameDescriptor descriptor;
    return Parse(text, descriptor);
}

// `expected` are all planes of the message; only the first four are stored.
void ExpectPlanes(const std::vector<PlaneLayout>& expected, const FrameDescriptor& descriptor) {
    std::array<PlaneLayout, MaxPlanes> stored;
    std::copy_n(expected.begin(), std::min(expected.size(), stored.size()), stored.begin());
    EXPECT_EQ(expected.size(), descriptor.planeCount);
    EXPECT_EQ(stored, descriptor.planes);
}

bool ParsesWithField(Field field, std::wstring_view text) {
    Message message;
    message.fields.at(field) = text;
    return Parses(message.Text());
}

bool ParsesWithPlanes(std::wstring_view planes) {
    Message message;
    message.planes = planes;
    return Parses(message.Text());
}

// Texts that are not unsigned decimal numbers although a lenient parser would read `digits` from them.
std::vector<std::wstring> InvalidNumbers(const std::wstring& digits) {
    std::wstring fullWidth;
    std::wstring arabicIndic;
    for (const wchar_t digit : digits) {
        fullWidth += static_cast<wchar_t>(0xFF10 + (digit - L'0'));
        arabicIndic += static_cast<wchar_t>(0x0660 + (digit - L'0'));
    }
    return {
        L"",
        L" ",
        L"-",
        L"+",
        L" " + digits,
        digits + L" ",
        L"\t" + digits,
        digits + L"\n",
        L"+" + digits,
        L"-" + digits,
        L"0x" + digits,
        L"0X" + digits,
        L"x" + digits,
        L"0b" + digits,
        digits + L"a",
        digits + L"u",
        digits + L".",
        digits + L".0",
        digits + L"e0",
        digits + L"'",
        digits + L"_0",
        digits + L"/",
        digits + L"%",
        digits + L"\u00B2",
        fullWidth,
        arabicIndic,
        digits + fullWidth,
        std::wstring(1, L'\0') + digits,
        digits + std::wstring(1, L'\0'),
        std::wstring(1, L'\0'),
    };
}

struct NumberCase {
    const wchar_t* text;
    bool accepted;
};

void ExpectNumbers(Field field, const std::vector<NumberCase>& cases) {
    for (const NumberCase& number : cases) {
        EXPECT_EQ(number.accepted, ParsesWithField(field, number.text)) << "field " << field << ": " << number.text;
    }
}

TEST(FrameMessage, ReadsEveryField) {
    FrameDescriptor descriptor;
    ASSERT_TRUE(Parse(L"I420A:642:358:1:270:0:1919:1081:7,656;240000,336;300001,344;360002,656", descriptor));
    EXPECT_EQ(L"I420A", descriptor.format);
    EXPECT_EQ(642U, descriptor.codedWidth);
    EXPECT_EQ(358U, descriptor.codedHeight);
    EXPECT_TRUE(descriptor.flipA);
    EXPECT_EQ(270U, descriptor.rotation);
    EXPECT_FALSE(descriptor.flipB);
    EXPECT_EQ(1919U, descriptor.displayWidth);
    EXPECT_EQ(1081U, descriptor.displayHeight);
    ExpectPlanes({{7, 656}, {240000, 336}, {300001, 344}, {360002, 656}}, descriptor);
}

TEST(FrameMessage, ReadsAnNv12Frame) {
    FrameDescriptor descriptor;
    ASSERT_TRUE(Parse(L"NV12:1280:720:0:0:0:1280:720:0,1280;921600,1280", descriptor));
    EXPECT_EQ(L"NV12", descriptor.format);
    EXPECT_EQ(1280U, descriptor.codedWidth);
    EXPECT_EQ(720U, descriptor.codedHeight);
    EXPECT_FALSE(descriptor.flipA);
    EXPECT_EQ(0U, descriptor.rotation);
    EXPECT_FALSE(descriptor.flipB);
    EXPECT_EQ(1280U, descriptor.displayWidth);
    EXPECT_EQ(720U, descriptor.displayHeight);
    ExpectPlanes({{0, 1280}, {921600, 1280}}, descriptor);
}

TEST(FrameMessage, OverwritesEveryFieldOfAUsedDescriptor) {
    FrameDescriptor descriptor;
    ASSERT_TRUE(Parse(L"I420:640:480:1:180:1:800:600:1,640;2,320;3,320", descriptor));
    ASSERT_TRUE(Parse(L"RGBA:2:4:0:0:0:6:8:9,10", descriptor));
    EXPECT_EQ(L"RGBA", descriptor.format);
    EXPECT_EQ(2U, descriptor.codedWidth);
    EXPECT_EQ(4U, descriptor.codedHeight);
    EXPECT_FALSE(descriptor.flipA);
    EXPECT_EQ(0U, descriptor.rotation);
    EXPECT_FALSE(descriptor.flipB);
    EXPECT_EQ(6U, descriptor.displayWidth);
    EXPECT_EQ(8U, descriptor.displayHeight);
    ExpectPlanes({{9, 10}}, descriptor);
}

TEST(FrameMessage, ReadsTheFourFlipCombinations) {
    for (const bool flipA : {false, true}) {
        for (const bool flipB : {false, true}) {
            Message message;
            message.fields[FlipA] = flipA ? L"1" : L"0";
            message.fields[FlipB] = flipB ? L"1" : L"0";
            FrameDescriptor descriptor;
            ASSERT_TRUE(Parse(message.Text(), descriptor));
            EXPECT_EQ(flipA, descriptor.flipA);
            EXPECT_EQ(flipB, descriptor.flipB);
        }
    }
}

TEST(FrameMessage, KeepsTheFormatAsSent) {
    using namespace std::string_view_literals;
    for (const std::wstring_view format : {L""sv, L"YUY2"sv, L" NV12"sv, L"a;b,c"sv, L"NV12\0x"sv, L"\u00E9\u4E2D"sv}) {
        Message message;
        message.fields[Format] = format;
        FrameDescriptor descriptor;
        ASSERT_TRUE(Parse(message.Text(), descriptor));
        EXPECT_EQ(format, descriptor.format);
    }
}

TEST(FrameMessage, RefusesFewerThanEightColonEndedFields) {
    EXPECT_FALSE(Parses(L""));
    EXPECT_FALSE(Parses(L"NV12"));
    EXPECT_FALSE(Parses(L"NV12:1280:720:0:0,1280;921600,1280"));
    EXPECT_FALSE(Parses(L":::::::"));
    EXPECT_FALSE(Parses(L"::::::::"));
    const Message whole;
    for (std::size_t dropped = 0; dropped < FieldCount; ++dropped) {
        std::wstring withoutColon;
        std::wstring withoutField;
        for (std::size_t field = 0; field < FieldCount; ++field) {
            withoutColon += whole.fields.at(field) + (field == dropped ? L"" : L":");
            withoutField += field == dropped ? L"" : whole.fields.at(field) + L":";
        }
        EXPECT_FALSE(Parses(withoutColon + whole.planes)) << "without colon " << dropped;
        EXPECT_FALSE(Parses(withoutField + whole.planes)) << "without field " << dropped;
    }
}

TEST(FrameMessage, RefusesANinthColon) {
    const Message whole;
    const std::wstring text = whole.Text();
    ASSERT_TRUE(Parses(text));
    for (std::size_t position = 0; position <= text.size(); ++position) {
        std::wstring invalid = text;
        invalid.insert(position, 1, L':');
        EXPECT_FALSE(Parses(invalid)) << "colon inserted at " << position;
    }
}

TEST(FrameMessage, RefusesATextCutShortUnlessItEndsInAWholePlane) {
    const Message whole;
    const std::wstring text = whole.Text();
    const std::size_t planesAt = text.size() - whole.planes.size();
    for (std::size_t length = 0; length <= text.size(); ++length) {
        // "0,1" to "0,1280;", then "0,1280;921600,1" to the end.
        const bool wholePlane = (length >= planesAt + 3 && length <= planesAt + 7) || length >= planesAt + 15;
        EXPECT_EQ(wholePlane, Parses(text.substr(0, length))) << "cut to " << length;
    }
}

TEST(FrameMessage, LimitsTheCodedSizeAndRequiresEvenNumbers) {
    const std::vector<NumberCase> both = {{L"0", false},    {L"1", false},    {L"2", true},     {L"3", false},
                                          {L"4", true},     {L"1279", false}, {L"1280", true},  {L"2158", true},
                                          {L"2159", false}, {L"2160", true},  {L"4099", false}, {L"65536", false}};
    ExpectNumbers(CodedWidth, both);
    ExpectNumbers(CodedHeight, both);
    ExpectNumbers(
        CodedWidth,
        {{L"2162", true}, {L"4094", true}, {L"4095", false}, {L"4096", true}, {L"4097", false}, {L"4098", false}});
    ExpectNumbers(CodedHeight, {{L"2161", false}, {L"2162", false}, {L"4096", false}});
}

TEST(FrameMessage, LimitsTheDisplaySize) {
    const std::vector<NumberCase> both = {{L"0", false},    {L"1", true},     {L"2", true},     {L"3", true},
                                          {L"4095", true},  {L"4096", true},  {L"4097", false}, {L"4098", false},
                                          {L"8192", false}, {L"65537", false}};
    ExpectNumbers(DisplayWidth, both);
    ExpectNumbers(DisplayHeight, both);
}

TEST(FrameMessage, AcceptsOnlyTheFourRotations) {
    for (std::uint32_t degrees = 0; degrees <= 720; ++degrees) {
        const bool isMultipleOf90 = degrees == 0 || degrees == 90 || degrees == 180 || degrees == 270;
        Message message;
        message.fields[Rotation] = std::to_wstring(degrees);
        FrameDescriptor descriptor;
        ASSERT_EQ(isMultipleOf90, Parse(message.Text(), descriptor)) << degrees;
        if (isMultipleOf90) {
            EXPECT_EQ(degrees, descriptor.rotation);
        }
    }
}

TEST(FrameMessage, RequiresEachFlipToBeZeroOrOne) {
    using namespace std::string_view_literals;
    for (const Field flip : {FlipA, FlipB}) {
        EXPECT_TRUE(ParsesWithField(flip, L"0"));
        EXPECT_TRUE(ParsesWithField(flip, L"1"));
        for (const std::wstring_view text : {L""sv, L"2"sv, L"true"sv, L"false"sv, L"00"sv, L"01"sv, L"10"sv, L" 0"sv,
                                             L"1 "sv, L"+1"sv, L"-0"sv, L"1\0"sv, L"\0"sv, L"\uFF11"sv, L"/"sv}) {
            EXPECT_FALSE(ParsesWithField(flip, text)) << "field " << flip << ": " << std::wstring(text);
        }
    }
}

TEST(FrameMessage, RequiresDecimalDigitsInEveryNumber) {
    for (const Field field : {CodedWidth, CodedHeight, Rotation, DisplayWidth, DisplayHeight}) {
        const std::wstring digits = field == Rotation ? L"90" : L"720";
        ASSERT_TRUE(ParsesWithField(field, digits));
        for (const std::wstring& invalid : InvalidNumbers(digits)) {
            EXPECT_FALSE(ParsesWithField(field, invalid)) << "field " << field << ": " << invalid;
        }
    }
    for (const std::wstring& invalid : InvalidNumbers(L"1280")) {
        EXPECT_FALSE(ParsesWithPlanes(invalid + L",1280")) << "offset " << invalid;
        EXPECT_FALSE(ParsesWithPlanes(L"1280," + invalid)) << "stride " << invalid;
        EXPECT_FALSE(ParsesWithPlanes(L"0,1280;" + invalid + L",1280")) << "second offset " << invalid;
        EXPECT_FALSE(ParsesWithPlanes(L"0,1280;1280," + invalid)) << "second stride " << invalid;
    }
}

TEST(FrameMessage, AcceptsLeadingZeros) {
    const std::wstring zeros(40, L'0');
    Message message;
    for (const Field field : {CodedWidth, CodedHeight, Rotation, DisplayWidth, DisplayHeight}) {
        message.fields.at(field).insert(0, zeros);
    }
    message.planes = zeros + L"7," + zeros + L"1280";
    FrameDescriptor descriptor;
    ASSERT_TRUE(Parse(message.Text(), descriptor));
    EXPECT_EQ(1280U, descriptor.codedWidth);
    EXPECT_EQ(720U, descriptor.codedHeight);
    EXPECT_EQ(0U, descriptor.rotation);
    EXPECT_EQ(1280U, descriptor.displayWidth);
    EXPECT_EQ(720U, descriptor.displayHeight);
    ExpectPlanes({{7, 1280}}, descriptor);
    EXPECT_TRUE(ParsesWithField(Rotation, L"090"));
    EXPECT_FALSE(ParsesWithPlanes(L"0," + zeros));
}

// Each of these has a valid number in its low 32 or 64 bits.
TEST(FrameMessage, RefusesANumberThatWouldOverflow) {
    for (const Field field : {CodedWidth, CodedHeight, Rotation, DisplayWidth, DisplayHeight}) {
        ExpectNumbers(field, {{L"4294967295", false},
                              {L"4294967296", false},
                              {L"4294967297", false},
                              {L"18446744073709551615", false},
                              {L"18446744073709551616", false},
                              {L"18446744073709551618", false},
                              {L"340282366920938463463374607431768211458", false}});
    }
    // 2^32 + 720, 2^64 + 720, 720 - 2^64; the same with 90.
    for (const Field field : {CodedWidth, CodedHeight, DisplayWidth, DisplayHeight}) {
        ExpectNumbers(field,
                      {{L"4294968016", false}, {L"18446744073709552336", false}, {L"-18446744073709550896", false}});
    }
    ExpectNumbers(Rotation,
                  {{L"4294967386", false}, {L"18446744073709551706", false}, {L"-18446744073709551526", false}});

    EXPECT_FALSE(ParsesWithPlanes(L"4294967296,1280"));
    EXPECT_FALSE(ParsesWithPlanes(L"18446744073709551615,1280"));
    EXPECT_FALSE(ParsesWithPlanes(L"18446744073709551616,1280"));
    EXPECT_FALSE(ParsesWithPlanes(L"18446744073709551617,1280"));
    EXPECT_FALSE(ParsesWithPlanes(L"184467440737095516160,1280"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,18446744073709551616"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,18446744073709551617"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,18446744073709552896"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,18446744073709551620"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,20000000000000000000"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,99999999999999999999"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,100000000000000000000"));
    EXPECT_FALSE(ParsesWithPlanes(L"0," + std::wstring(1000, L'9')));
}

TEST(FrameMessage, ReadsTheWholeRangeOfAStride) {
    for (const std::uint64_t stride :
         {std::uint64_t{1}, std::uint64_t{4294967295}, std::uint64_t{4294967296}, std::uint64_t{9223372036854775808U},
          std::uint64_t{18446744073709551614U}, std::numeric_limits<std::uint64_t>::max()}) {
        Message message;
        message.planes = L"5," + std::to_wstring(stride);
        FrameDescriptor descriptor;
        ASSERT_TRUE(Parse(message.Text(), descriptor)) << stride;
        ExpectPlanes({{5, stride}}, descriptor);
    }
}

TEST(FrameMessage, RequiresEveryStrideToBeNonZero) {
    EXPECT_FALSE(ParsesWithPlanes(L"0,0"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,00"));
    EXPECT_TRUE(ParsesWithPlanes(L"0,1"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,1280;921600,0"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,0;921600,1280"));
}

TEST(FrameMessage, RequiresEveryOffsetInsideTheSlot) {
    EXPECT_TRUE(ParsesWithPlanes(L"8294399,1280"));
    EXPECT_FALSE(ParsesWithPlanes(L"8294400,1280"));
    EXPECT_FALSE(ParsesWithPlanes(L"8294401,1280"));
    EXPECT_TRUE(ParsesWithPlanes(L"0,1280;8294399,1280"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,1280;8294400,1280"));
}

TEST(FrameMessage, AcceptsOneTrailingSemicolonAfterTheLastPlane) {
    FrameDescriptor descriptor;
    ASSERT_TRUE(Parse(L"NV12:1280:720:0:0:0:1280:720:0,1280;921600,1280;", descriptor));
    EXPECT_EQ(2U, descriptor.planeCount);
    EXPECT_TRUE(ParsesWithPlanes(L"0,1280;"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,1280;921600,1280;;"));
    EXPECT_FALSE(ParsesWithPlanes(L"0,1280;921600,1280;;;"));
}

TEST(FrameMessage, RefusesAMalformedPlaneList) {
    using namespace std::string_view_literals;
    for (const std::wstring_view planes : {L""sv,
                                           L";"sv,
                                           L","sv,
                                           L"0"sv,
                                           L"0,"sv,
                                           L",1280"sv,
                                           L"0;1280"sv,
                                           L"0 1280"sv,
                                           L"0,1280,0"sv,
                                           L"0,,1280"sv,
                                           L"0x10,1280"sv,
                                           L"0,0x500"sv,
                                           L";0,1280"sv,
                                           L"0,1280;;921600,1280"sv,
                                           L"0,1280;921600"sv,
                                           L"0,1280;921600,"sv,
                                           L"0,1280;,1280"sv,
                                           L"0,1280; 921600,1280"sv,
                                           L"0,1280 ;921600,1280"sv,
                                           L"0,1280; "sv,
                                           L"0,1280;\0"sv,
                                           L"\0"sv,
                                           L"0,1280\0;921600,1280"sv,
                                           L"0, 1280"sv,
                                           L"0,1280\n"sv,
                                           L"0,1280|921600,1280"sv}) {
        EXPECT_FALSE(ParsesWithPlanes(planes)) << std::wstring(planes);
    }
}

// No message can make a descriptor allocate memory.
static_assert(std::is_trivially_copyable_v<FrameDescriptor>);

TEST(FrameMessage, StoresFourPlanesAtMostAndCountsAll) {
    Message message;
    message.planes.clear();
    std::vector<PlaneLayout> planes;
    for (const std::size_t planeCount : {1U, 3U, 4U, 5U, 6U, 10000U}) {
        while (planes.size() < planeCount) {
            planes.push_back({.offset = planes.size() * 829, .stride = planes.size() + 1});
            message.planes +=
                std::to_wstring(planes.back().offset) + L"," + std::to_wstring(planes.back().stride) + L";";
        }
        FrameDescriptor descriptor;
        ASSERT_TRUE(Parse(message.Text(), descriptor));
        ExpectPlanes(planes, descriptor);
    }
}

TEST(FrameMessage, ChecksThePlanesThatItDoesNotStore) {
    const std::wstring fourPlanes = L"0,1280;0,1280;0,1280;0,1280;";
    ASSERT_TRUE(ParsesWithPlanes(fourPlanes + L"8294399,1"));
    for (const std::wstring_view wrong : {L"0,0", L"8294400,1", L"0", L"0,1,", L";", L"x"}) {
        EXPECT_FALSE(ParsesWithPlanes(fourPlanes + std::wstring(wrong))) << std::wstring(wrong);
        EXPECT_FALSE(ParsesWithPlanes(fourPlanes + L"0,1;" + std::wstring(wrong))) << std::wstring(wrong);
    }
}

} // namespace
} // namespace receiver
