#include "app/command_line.h"

#include <gtest/gtest.h>

namespace receiver {
namespace {

constexpr wchar_t Hosted[] = L"https://hosted.example/";

TEST(CommandLine, EmbeddedSelectsTheBuiltInPage) { EXPECT_EQ(ChoosePageAddress(L"--embedded", Hosted), L""); }

TEST(CommandLine, UrlReplacesTheHostedAddress) {
    EXPECT_EQ(ChoosePageAddress(L"--url=http://127.0.0.1:8080/page?x=1", Hosted), L"http://127.0.0.1:8080/page?x=1");
}

TEST(CommandLine, AnythingElseSelectsTheHostedAddress) {
    for (const wchar_t* text : {L"", L"--embedded ", L" --embedded", L"--EMBEDDED", L"--Embedded", L"\"--embedded\"",
                                L"--embedded --url=http://a/", L"--url", L"--URL=http://a/", L" --url=http://a/",
                                L"-url=http://a/", L"http://a/"}) {
        EXPECT_EQ(ChoosePageAddress(text, Hosted), Hosted) << testing::PrintToString(std::wstring(text));
    }
}

TEST(CommandLine, UrlWithoutAnAddressSelectsTheBuiltInPage) {
    EXPECT_EQ(ChoosePageAddress(L"--url=", Hosted), L"");
    EXPECT_EQ(ChoosePageAddress(L"--url=\"\"", Hosted), L"");
}

TEST(CommandLine, OnePairOfQuotesAroundTheAddressIsRemoved) {
    EXPECT_EQ(ChoosePageAddress(L"--url=\"http://a/b c\"", Hosted), L"http://a/b c");
    EXPECT_EQ(ChoosePageAddress(L"--url=\"\"http://a/\"\"", Hosted), L"\"http://a/\"");
    EXPECT_EQ(ChoosePageAddress(L"--url=\"http://a/?q=\"x\"\"", Hosted), L"http://a/?q=\"x\"");
    EXPECT_EQ(ChoosePageAddress(L"--url=\"http://a/?q=1&r=\u00E9\"", Hosted), L"http://a/?q=1&r=\u00E9");
}

TEST(CommandLine, AnUnpairedQuoteIsKept) {
    EXPECT_EQ(ChoosePageAddress(L"--url=\"http://a/", Hosted), L"\"http://a/");
    EXPECT_EQ(ChoosePageAddress(L"--url=http://a/\"", Hosted), L"http://a/\"");
    EXPECT_EQ(ChoosePageAddress(L"--url=\"", Hosted), L"\"");
    EXPECT_EQ(ChoosePageAddress(L"--url=\"http://a/\" ", Hosted), L"\"http://a/\" ");
}

TEST(CommandLine, TheAddressIsTheWholeRemainder) {
    EXPECT_EQ(ChoosePageAddress(L"--url=http://a/ --embedded", Hosted), L"http://a/ --embedded");
    EXPECT_EQ(ChoosePageAddress(L"--url= http://a/", Hosted), L" http://a/");
}

} // namespace
} // namespace receiver
