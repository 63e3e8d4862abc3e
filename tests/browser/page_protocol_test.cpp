// The texts of the page: what the receiver logs, posts and returns for each.
#include "tests/support/shell_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <filesystem>
#include <string>
#include <vector>

namespace receiver {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class PageProtocolTest : public ShellTest {
protected:
    void SetUp() override {
        OpenBrowser();
        std::filesystem::remove(log);
    }
    // Raises the page's text; `calls` are what it led to, without the call that read it.
    HRESULT Post(const std::wstring& text) {
        const HRESULT result = browser.RaiseWebMessage(text.c_str());
        calls = browser.TakeCalls();
        EXPECT_EQ(calls.at(0), L"TryGetWebMessageAsString");
        calls.erase(calls.begin());
        return result;
    }
    std::vector<unsigned> PublishedSize() const {
        const FrameFileHeader header = FrameHeader();
        return {header.width, header.height};
    }

    const std::filesystem::path qualityFile = programData / L"Vistel" / L"video-quality.txt";
    std::vector<std::wstring> calls; // of the last text
};

TEST_F(PageProtocolTest, ReadyPostsSlotsAndDiagnostics) {
    EXPECT_EQ(Post(L"ready"), S_OK);
    EXPECT_THAT(LogLines(), ElementsAre("Web message: ready", "Shared frame buffers posted to script",
                                        "System diagnostics posted to script"));
    EXPECT_THAT(calls, testing::IsSupersetOf({std::wstring(L"PostSharedBufferToScript SharedBuffer0 1 {\"slot\":0}"),
                                              std::wstring(L"PostSharedBufferToScript SharedBuffer1 1 {\"slot\":1}")}));
    EXPECT_THAT(calls.back(), StartsWith(L"PostWebMessageAsJson {\"type\":\"diagnostics\","));
}

TEST_F(PageProtocolTest, ReadySucceedsWhenTheDiagnosticsCannotBePosted) {
    browser.Fail(L"PostWebMessageAsJson", E_ABORT);
    EXPECT_EQ(Post(L"ready"), S_OK);
    EXPECT_THAT(LogLines(), ElementsAre("Web message: ready", "Shared frame buffers posted to script",
                                        "System diagnostics posted to script (HRESULT 0x80004004)"));
}

TEST_F(PageProtocolTest, AFailedReadyPostsNoDiagnostics) {
    browser.Fail(L"CreateSharedBuffer", E_ABORT);
    EXPECT_EQ(Post(L"ready"), E_ABORT);
    EXPECT_THAT(LogLines(),
                ElementsAre("Web message: ready", "Shared frame buffers posted to script (HRESULT 0x80004004)"));
    EXPECT_THAT(calls, testing::Not(testing::Contains(StartsWith(L"PostWebMessageAsJson"))));
}

TEST_F(PageProtocolTest, EveryReadyPostsEverythingAgain) {
    EXPECT_EQ(Post(L"ready"), S_OK);
    std::filesystem::remove(log);
    EXPECT_EQ(Post(L"ready"), S_OK);
    EXPECT_THAT(LogLines(), ElementsAre("Web message: ready", "Shared frame buffers posted to script",
                                        "System diagnostics posted to script"));
}

TEST_F(PageProtocolTest, UnknownTextsAreOnlyLogged) {
    for (const char* text : {"", "Ready", "ready ", " ready", "window:orientation", "media:snapshot ", "Media:snapshot",
                             "media:record:pause", "quality", "Quality:720p", "frame", "Frame:0:", "error:no camera"}) {
        std::filesystem::remove(log);
        const std::string narrow = text;
        EXPECT_EQ(Post(std::wstring(narrow.begin(), narrow.end())), S_OK) << narrow;
        EXPECT_THAT(LogLines(), ElementsAre("Web message: " + narrow));
        EXPECT_THAT(calls, IsEmpty()) << narrow;
    }
}

TEST_F(PageProtocolTest, ANullStringCountsAsEmpty) {
    EXPECT_EQ(browser.RaiseWebMessage(nullptr), S_OK);
    EXPECT_THAT(LogLines(), ElementsAre("Web message: "));
}

TEST_F(PageProtocolTest, AMessageThatIsNotAStringIsIgnored) {
    browser.Fail(L"TryGetWebMessageAsString", E_INVALIDARG, 0);
    browser.Fail(L"TryGetWebMessageAsString", RPC_E_WRONG_THREAD, 1);
    EXPECT_EQ(Post(L"ready"), E_INVALIDARG);
    EXPECT_EQ(Post(L"ready"), RPC_E_WRONG_THREAD);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(log));
}

TEST_F(PageProtocolTest, CharactersAboveOneByteAreLoggedAsQuestionMarks) {
    EXPECT_EQ(Post(L"caf\u00E9 \u20AC \U0001F600 \u0100 \u00FF end"), S_OK);
    EXPECT_EQ(Post(L"next"), S_OK);
    EXPECT_THAT(LogLines(), ElementsAre("Web message: caf\xE9 ? ? ? \xFF end", "Web message: next"));
}

TEST_F(PageProtocolTest, TheThreeLayoutsAreAccepted) {
    for (const wchar_t* layout : {L"landscape", L"portrait", L"setup"}) {
        EXPECT_EQ(Post(std::wstring(L"window:orientation:") + layout), S_OK);
    }
}

TEST_F(PageProtocolTest, AnyOtherLayoutIsRefusedSilently) {
    for (const wchar_t* layout : {L"", L"Portrait", L"LANDSCAPE", L"setup ", L" setup", L"square"}) {
        EXPECT_EQ(Post(std::wstring(L"window:orientation:") + layout), E_INVALIDARG);
        EXPECT_THAT(calls, IsEmpty());
    }
    EXPECT_FALSE(std::filesystem::exists(log));
}

TEST_F(PageProtocolTest, ASnapshotBeforeAnyFramePostsAFailure) {
    EXPECT_EQ(Post(L"media:snapshot"), static_cast<HRESULT>(0xC00D36D6));
    EXPECT_THAT(calls, ElementsAre(L"PostWebMessageAsJson {\"type\":\"media-result\",\"action\":\"snapshot\","
                                   L"\"success\":false,\"path\":\"\",\"error\":3222091478}"));
    EXPECT_THAT(LogLines(), ElementsAre("Snapshot requested (HRESULT 0xC00D36D6)"));
}

TEST_F(PageProtocolTest, AFailedPostOfAResultIsIgnored) {
    browser.Fail(L"PostWebMessageAsJson", E_FAIL);
    EXPECT_EQ(Post(L"media:snapshot"), static_cast<HRESULT>(0xC00D36D6));
    EXPECT_THAT(LogLines(), ElementsAre("Snapshot requested (HRESULT 0xC00D36D6)"));
}

TEST_F(PageProtocolTest, StoppingWhileIdleSucceedsWithoutAPath) {
    EXPECT_EQ(Post(L"media:record:stop"), S_FALSE);
    EXPECT_THAT(calls, ElementsAre(L"PostWebMessageAsJson {\"type\":\"media-result\",\"action\":\"recording-stopped\","
                                   L"\"success\":true,\"path\":\"\",\"error\":1}"));
    EXPECT_THAT(LogLines(), ElementsAre("Recording stopped"));
}

TEST_F(PageProtocolTest, NothingIsPostedWithoutABrowser) {
    ReceiverApp withoutBrowser;
    EXPECT_EQ(withoutBrowser.PostJsonToPage(L"{}"), E_POINTER);
    withoutBrowser.PostMediaResult(L"snapshot", S_OK, L"C:\\picture.jpg");
    EXPECT_THAT(browser.TakeCalls(), IsEmpty());
}

TEST_F(PageProtocolTest, ThePathOfAMediaResultIsEscaped) {
    app->PostMediaResult(L"snapshot", S_OK, L"C:\\Users\\a\\Pictures\\\"x\".jpg");
    EXPECT_THAT(browser.TakeCalls(),
                ElementsAre(L"PostWebMessageAsJson {\"type\":\"media-result\",\"action\":\"snapshot\",\"success\":true,"
                            L"\"path\":\"C:\\\\Users\\\\a\\\\Pictures\\\\\\\"x\\\".jpg\",\"error\":0}"));
}

TEST_F(PageProtocolTest, AQualityIsLoggedAndTakesEffectWithTheNextFrame) {
    ASSERT_EQ(Post(L"ready"), S_OK);
    EXPECT_EQ(Post(GoodFrame), S_OK);
    EXPECT_THAT(PublishedSize(), ElementsAre(1280U, 720U));
    std::filesystem::remove(log);

    EXPECT_EQ(Post(L"quality:1080p"), S_OK);
    EXPECT_THAT(LogLines(), ElementsAre("Video quality selected: 1080p"));
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(PublishedSize(), ElementsAre(1280U, 720U));
    EXPECT_EQ(Post(GoodFrame), S_OK);
    EXPECT_THAT(PublishedSize(), ElementsAre(1920U, 1080U));

    EXPECT_EQ(Post(L"quality:720p"), S_OK);
    EXPECT_EQ(LogLines().back(), "Video quality selected: 720p");
    EXPECT_EQ(Post(GoodFrame), S_OK);
    EXPECT_THAT(PublishedSize(), ElementsAre(1280U, 720U));
}

TEST_F(PageProtocolTest, AQualityIsSaved) {
    EXPECT_EQ(Post(L"quality:1080p"), S_OK);
    EXPECT_EQ(ReadBytes(qualityFile), "1080p");
    EXPECT_EQ(Post(L"quality:480p"), E_INVALIDARG);
    EXPECT_EQ(ReadBytes(qualityFile), "1080p");
    EXPECT_EQ(Post(L"quality:720p"), S_OK);
    EXPECT_EQ(ReadBytes(qualityFile), "720p");
}

TEST_F(PageProtocolTest, AQualityThatCannotBeSavedStillTakesEffect) {
    ASSERT_EQ(Post(L"ready"), S_OK);
    std::filesystem::create_directory(qualityFile);
    std::filesystem::remove(log);
    EXPECT_EQ(Post(L"quality:1080p"), E_FAIL);
    EXPECT_THAT(LogLines(), ElementsAre("Video quality selected: 1080p"));
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(Post(GoodFrame), S_OK);
    EXPECT_THAT(PublishedSize(), ElementsAre(1920U, 1080U));
}

TEST_F(PageProtocolTest, AnUnknownQualityIsRefusedSilentlyAndChangesNothing) {
    ASSERT_EQ(Post(L"ready"), S_OK);
    std::filesystem::remove(log);
    for (const wchar_t* value : {L"", L"480p", L"1080P", L"1080p ", L" 720p"}) {
        EXPECT_EQ(Post(std::wstring(L"quality:") + value), E_INVALIDARG);
        EXPECT_THAT(calls, IsEmpty());
    }
    EXPECT_FALSE(std::filesystem::exists(log));
    EXPECT_EQ(Post(GoodFrame), S_OK);
    EXPECT_THAT(PublishedSize(), ElementsAre(1280U, 720U));
}

TEST_F(PageProtocolTest, AMalformedFrameIsRefusedSilently) {
    for (const wchar_t* text : {L"frame:", L"frame:0", L"frame:0:", L"frame:0:NV12"}) {
        EXPECT_EQ(Post(text), E_INVALIDARG);
    }
    EXPECT_FALSE(std::filesystem::exists(log));
}

TEST_F(PageProtocolTest, NoAllocationFailureEscapes) {
    for (const wchar_t* text : {L"ready", L"window:orientation:portrait", L"media:snapshot", L"media:record:stop",
                                L"quality:1080p", L"a text that is long enough to be put on the heap"}) {
        bool failed = true;
        for (unsigned allocation = 0; failed; ++allocation) {
            const AllocationFault fault(allocation);
            (void)browser.RaiseWebMessage(text);
            failed = fault.Happened();
            ASSERT_LT(allocation, 1000U);
        }
    }
    EXPECT_EQ(Post(L"ready"), S_OK); // The receiver works as before.
    EXPECT_EQ(Post(GoodFrame), S_OK);
}

} // namespace
} // namespace receiver
