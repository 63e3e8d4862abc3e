#include "browser/page_command.h"

#include <gtest/gtest.h>

namespace receiver {
namespace {

using Kind = PageCommandKind;

TEST(PageCommand, WholeTextsMatchExactly) {
    EXPECT_EQ(RecognizePageCommand(L"ready").kind, Kind::Ready);
    EXPECT_EQ(RecognizePageCommand(L"media:snapshot").kind, Kind::Snapshot);
    EXPECT_EQ(RecognizePageCommand(L"media:record:start").kind, Kind::RecordStart);
    EXPECT_EQ(RecognizePageCommand(L"media:record:stop").kind, Kind::RecordStop);
}

TEST(PageCommand, WhatFollowsAPrefixIsTheArgument) {
    EXPECT_EQ(RecognizePageCommand(L"window:orientation:portrait").kind, Kind::WindowLayout);
    EXPECT_EQ(RecognizePageCommand(L"window:orientation:portrait").argument, L"portrait");
    EXPECT_EQ(RecognizePageCommand(L"quality:1080p").kind, Kind::Quality);
    EXPECT_EQ(RecognizePageCommand(L"quality:1080p").argument, L"1080p");
    EXPECT_EQ(RecognizePageCommand(L"frame:0:NV12").kind, Kind::Frame);
    EXPECT_EQ(RecognizePageCommand(L"frame:0:NV12").argument, L"0:NV12");
}

TEST(PageCommand, APrefixAloneHasAnEmptyArgument) {
    for (const wchar_t* text : {L"window:orientation:", L"quality:", L"frame:"}) {
        const PageCommand command = RecognizePageCommand(text);
        EXPECT_NE(command.kind, Kind::Unknown);
        EXPECT_TRUE(command.argument.empty());
    }
}

TEST(PageCommand, AnythingElseIsUnknown) {
    for (const wchar_t* text : {L"",
                                L"Ready",
                                L"READY",
                                L"ready ",
                                L" ready",
                                L"ready\n",
                                L"read",
                                L"media:snapshot ",
                                L"media:snapshots",
                                L"Media:snapshot",
                                L"media:record",
                                L"media:record:start:now",
                                L"media:record:stop ",
                                L"window:orientation",
                                L"Window:orientation:setup",
                                L"quality",
                                L"Quality:720p",
                                L"frame",
                                L" frame:0:",
                                L"error:boom"}) {
        EXPECT_EQ(RecognizePageCommand(text).kind, Kind::Unknown) << testing::PrintToString(std::wstring(text));
    }
}

TEST(PageCommand, EachLayoutHasItsClientSize) {
    EXPECT_EQ(ClientSizeOf(L"landscape"), (ClientSize{960, 540}));
    EXPECT_EQ(ClientSizeOf(L"portrait"), (ClientSize{450, 800}));
    EXPECT_EQ(ClientSizeOf(L"setup"), (ClientSize{760, 520}));
    for (const wchar_t* text : {L"", L"Portrait", L"portrait ", L"square"}) {
        EXPECT_EQ(ClientSizeOf(text), std::nullopt);
    }
}

} // namespace
} // namespace receiver
