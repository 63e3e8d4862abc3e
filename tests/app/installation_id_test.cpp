#include "app/installation_id.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace receiver {
namespace {

constexpr std::string_view Valid = "01234567-89ab-cdef-ABCD-EF0123456789";

std::string With(std::size_t position, char character) {
    std::string text(Valid);
    text[position] = character;
    return text;
}

bool IsHyphenPosition(std::size_t position) {
    return position == 8 || position == 13 || position == 18 || position == 23;
}

TEST(InstallationId, AcceptsHexadecimalDigitsInEitherCase) {
    EXPECT_TRUE(IsInstallationId(Valid));
    EXPECT_TRUE(IsInstallationId("ABCDEFAB-CDEF-ABCD-EFAB-CDEFABCDEFAB"));
    EXPECT_TRUE(IsInstallationId("00000000-0000-0000-0000-000000000000"));
}

TEST(InstallationId, AcceptsOnlyHexadecimalDigitsAtDigitPositions) {
    for (std::size_t i = 0; i < Valid.size(); ++i) {
        for (const char digit : {'0', '9', 'a', 'f', 'A', 'F'}) {
            EXPECT_EQ(IsInstallationId(With(i, digit)), !IsHyphenPosition(i)) << i << digit;
        }
        for (const char other : {'/', ':', '@', 'G', '`', 'g', ' ', '\0', '\xE9'}) {
            EXPECT_FALSE(IsInstallationId(With(i, other))) << i << other;
        }
    }
}

TEST(InstallationId, RequiresHyphensAtExactlyFourPositions) {
    for (std::size_t i = 0; i < Valid.size(); ++i) {
        EXPECT_EQ(IsInstallationId(With(i, '-')), IsHyphenPosition(i)) << i;
    }
    EXPECT_FALSE(IsInstallationId("012345678-9ab-cdef-ABCD-EF0123456789"));
    EXPECT_FALSE(IsInstallationId("0123456-789ab-cdef-ABCD-EF0123456789"));
}

TEST(InstallationId, Has36Characters) {
    const std::string valid(Valid);
    EXPECT_FALSE(IsInstallationId(""));
    EXPECT_FALSE(IsInstallationId(Valid.substr(0, 35)));
    EXPECT_FALSE(IsInstallationId(Valid.substr(1)));
    EXPECT_FALSE(IsInstallationId(valid + '0'));
    EXPECT_FALSE(IsInstallationId(valid + ' '));
    EXPECT_FALSE(IsInstallationId(' ' + valid));
    EXPECT_FALSE(IsInstallationId(valid + '\r'));
    EXPECT_FALSE(IsInstallationId('{' + valid + '}'));
    EXPECT_FALSE(IsInstallationId("0123456789abcdefABCDEF0123456789"));
}

} // namespace
} // namespace receiver
