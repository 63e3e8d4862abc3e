#include "browser/client_query.h"

#include <gtest/gtest.h>

namespace receiver {
namespace {

constexpr wchar_t Id[] = L"0f8fad5b-D9CB-469f-a165-70867728950e";

std::wstring WithQuery(std::wstring address, std::wstring_view installationId) {
    AppendClientQuery(address, installationId);
    return address;
}

TEST(ClientQuery, BothParametersFollowAQuestionMark) {
    EXPECT_EQ(WithQuery(L"https://a.example/p", Id),
              L"https://a.example/p?installationId=0f8fad5b-D9CB-469f-a165-70867728950e&clientVersion=0.1.3");
}

TEST(ClientQuery, AnAddressKeepsItsOwnQuery) {
    EXPECT_EQ(WithQuery(L"https://a.example/p?x=1", Id),
              L"https://a.example/p?x=1&installationId=0f8fad5b-D9CB-469f-a165-70867728950e&clientVersion=0.1.3");
    EXPECT_EQ(WithQuery(L"https://a.example/p?x=1", L""), L"https://a.example/p?x=1&clientVersion=0.1.3");
}

TEST(ClientQuery, WithoutAnIdentifierOnlyTheVersionIsSent) {
    EXPECT_EQ(WithQuery(L"https://a.example/p", L""), L"https://a.example/p?clientVersion=0.1.3");
}

TEST(ClientQuery, TheEmptyAddressStaysEmpty) { EXPECT_EQ(WithQuery(L"", Id), L""); }

TEST(ClientQuery, AQuestionMarkAnywhereCountsAndNothingIsEncoded) {
    EXPECT_EQ(WithQuery(L"https://a.example/#?", L"a b"),
              L"https://a.example/#?&installationId=a b&clientVersion=0.1.3");
    EXPECT_EQ(WithQuery(L"https://a.example/#top", L""), L"https://a.example/#top?clientVersion=0.1.3");
}

} // namespace
} // namespace receiver
