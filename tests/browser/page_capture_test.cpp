// Snapshots and recordings requested by the page: files, log lines and posted results.
#include "capture/snapshot_writer.h"
#include "frames/nv12_frame.h"
#include "platform/com_ptr.h"
#include "tests/capture/capture_folders.h"
#include "tests/capture/sink_writer_fake.h"
#include "tests/support/apartment.h"
#include "tests/support/function_patch.h"
#include "tests/support/shell_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <mferror.h>
#include <wincodec.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace receiver {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr HRESULT DiskFull = static_cast<HRESULT>(0x80070070);

class PageCaptureTest : public ShellTest {
protected:
    void SetUp() override {
        OpenBrowser();
        ASSERT_EQ(Post(L"ready"), S_OK);
        Forget();
    }
    // Keeps in `posted` what the receiver posts in return.
    HRESULT Post(const std::wstring& text) {
        const HRESULT result = browser.RaiseWebMessage(text.c_str());
        posted.clear();
        for (const std::wstring& call : browser.TakeCalls()) {
            if (call.starts_with(L"PostWebMessageAsJson ")) {
                posted.push_back(call.substr(21));
            }
        }
        return result;
    }
    static std::wstring MediaResult(const std::wstring& action, bool success, const std::wstring& path,
                                    std::uint32_t code) {
        std::wstring escaped;
        for (const wchar_t character : path) {
            escaped += character == L'\\' ? L"\\\\" : std::wstring(1, character);
        }
        return L"{\"type\":\"media-result\",\"action\":\"" + action + L"\",\"success\":" +
               (success ? L"true" : L"false") + L",\"path\":\"" + escaped + L"\",\"error\":" + std::to_wstring(code) +
               L"}";
    }
    std::uint64_t Publishes() const { return FrameHeader().sequence / 2; }

    const Apartment apartment; // for the snapshot's encoder
    CaptureFolders folders;
    SinkWriterFakes fakes;
    std::vector<std::wstring> posted;
};

TEST_F(PageCaptureTest, ASnapshotOfTheLastFrameIsSaved) {
    ASSERT_EQ(Post(GoodFrame), S_OK);
    Forget();
    EXPECT_EQ(Post(L"media:snapshot"), S_OK);
    EXPECT_THAT(posted, ElementsAre(MediaResult(L"snapshot", true, folders.PicturePath(), 0)));
    EXPECT_THAT(LogLines(), ElementsAre("Snapshot requested"));
    EXPECT_GT(std::filesystem::file_size(folders.PicturePath()), 1000U);
}

TEST_F(PageCaptureTest, ASnapshotHasTheSizeInForce) {
    for (const auto& [quality, width, height] :
         {std::tuple{L"quality:1080p", 1920U, 1080U}, {L"quality:720p", 1280U, 720U}}) {
        const std::vector<std::uint8_t> frame(Nv12Size(width, height), 99);
        std::memset(browser.BufferMemory(0), 99, frame.size());
        ASSERT_EQ(Post(quality), S_OK);
        const std::wstring size = std::to_wstring(width) + L':' + std::to_wstring(height) + L':';
        const std::wstring planes =
            L"0," + std::to_wstring(width) + L';' + std::to_wstring(width * height) + L',' + std::to_wstring(width);
        ASSERT_EQ(Post(L"frame:0:NV12:" + size + L"0:0:0:" + size + planes), S_OK);
        ASSERT_EQ(Post(L"media:snapshot"), S_OK);
        const std::string picture = ReadBytes(folders.PicturePath());
        std::wstring path;
        ASSERT_EQ(SaveSnapshot(frame.data(), static_cast<std::uint32_t>(frame.size()), width, height, path), S_OK);
        EXPECT_TRUE(ReadBytes(path) == picture) << width << " x " << height;
    }
}

TEST_F(PageCaptureTest, AFailedSnapshotReportsItsPath) {
    ASSERT_EQ(Post(GoodFrame), S_OK);
    Forget();
    ASSERT_EQ(Post(L"quality:1080p"), S_OK); // The frame is smaller than the new size needs.
    Forget();
    EXPECT_EQ(Post(L"media:snapshot"), E_INVALIDARG);
    EXPECT_THAT(posted, ElementsAre(MediaResult(L"snapshot", false, folders.PicturePath(), 0x80070057)));
    EXPECT_THAT(LogLines(), ElementsAre("Snapshot requested (HRESULT 0x80070057)"));
    EXPECT_FALSE(std::filesystem::exists(folders.PicturePath()));
}

TEST_F(PageCaptureTest, AFullDiskIsReportedAndStopsNoFrame) {
    ASSERT_EQ(Post(GoodFrame), S_OK);
    const std::uint64_t publishes = Publishes();
    {
        ComPtr<IWICImagingFactory> factory;
        ComPtr<IWICStream> stream;
        ASSERT_EQ(CoCreateInstance(CLSID_WICImagingFactory2, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                                   factory.PutVoid()),
                  S_OK);
        ASSERT_EQ(factory->CreateStream(stream.Put()), S_OK);
        const MethodPatch opening(stream.Get(), &IWICStream::InitializeFromFilename,
                                  [](auto*, auto...) { return DiskFull; });
        EXPECT_EQ(Post(L"media:snapshot"), DiskFull);
        EXPECT_THAT(posted, ElementsAre(MediaResult(L"snapshot", false, folders.PicturePath(), 0x80070070)));
        EXPECT_EQ(Post(GoodFrame), S_OK);
    }
    EXPECT_EQ(Publishes(), publishes + 1);
    EXPECT_EQ(Post(L"media:snapshot"), S_OK);
}

TEST_F(PageCaptureTest, ASnapshotWithoutAFolderHasNoPath) {
    ASSERT_EQ(Post(GoodFrame), S_OK);
    folders.result = static_cast<HRESULT>(0x80070003);
    EXPECT_EQ(Post(L"media:snapshot"), folders.result);
    EXPECT_THAT(posted, ElementsAre(MediaResult(L"snapshot", false, L"", 0x80070003)));
}

TEST_F(PageCaptureTest, ARecordingContainsThePublishedFrames) {
    EXPECT_EQ(Post(L"media:record:start"), S_OK);
    EXPECT_THAT(posted, ElementsAre(MediaResult(L"recording-started", true, folders.VideoPath(), 0)));
    EXPECT_EQ(Post(GoodFrame), S_OK);
    EXPECT_THAT(posted, IsEmpty());
    EXPECT_EQ(Post(GoodFrame), S_OK);
    EXPECT_EQ(Post(L"frame:0:NV12:1280:720:0:0:0:1280:720:0,1280"), MF_E_INVALIDMEDIATYPE); // not published
    EXPECT_EQ(fakes.samples.size(), 2U);
    EXPECT_EQ(fakes.samples.at(0).bytes.size(), 1382400U);
    EXPECT_EQ(Post(L"media:record:stop"), S_OK);
    EXPECT_THAT(posted, ElementsAre(MediaResult(L"recording-stopped", true, folders.VideoPath(), 0)));
    EXPECT_EQ(Post(GoodFrame), S_OK);
    EXPECT_EQ(fakes.samples.size(), 2U);
    EXPECT_THAT(LogLines(), ElementsAre("Recording started", testing::StartsWith("First frame descriptor: "),
                                        "First browser frame published", "Recording stopped"));
}

TEST_F(PageCaptureTest, ARecordingHasTheSizeInForce) {
    ASSERT_EQ(Post(L"quality:1080p"), S_OK);
    EXPECT_EQ(Post(L"media:record:start"), S_OK);
    EXPECT_EQ(Post(GoodFrame), S_OK);
    EXPECT_EQ(fakes.samples.at(0).bytes.size(), 3110400U);
}

TEST_F(PageCaptureTest, ASecondStartIsRefusedAndTheFirstContinues) {
    ASSERT_EQ(Post(L"media:record:start"), S_OK);
    EXPECT_EQ(Post(L"media:record:start"), static_cast<HRESULT>(0x800700B7));
    EXPECT_THAT(posted, ElementsAre(MediaResult(L"recording-started", false, L"", 2147942583)));
    EXPECT_EQ(LogLines().back(), "Recording started (HRESULT 0x800700B7)");
    EXPECT_EQ(Post(GoodFrame), S_OK);
    EXPECT_EQ(fakes.samples.size(), 1U);
}

TEST_F(PageCaptureTest, AFrameThatCannotBeWrittenEndsTheRecordingAndIsPublished) {
    ASSERT_EQ(Post(L"media:record:start"), S_OK);
    ASSERT_EQ(Post(GoodFrame), S_OK);
    const std::uint64_t publishes = Publishes();
    fakes.Fail("WriteSample", DiskFull);
    fakes.Fail("Finalize", E_FAIL); // The page does not receive this result.
    (void)fakes.TakeCalls();
    Forget();
    EXPECT_EQ(Post(GoodFrame), DiskFull);
    EXPECT_THAT(posted, ElementsAre(MediaResult(L"recording-failed", false, folders.VideoPath(), 0x80070070)));
    EXPECT_THAT(fakes.TakeCalls(), ElementsAre("WriteSample", "Finalize", "released"));
    EXPECT_EQ(Publishes(), publishes + 1);
    EXPECT_THAT(LogLines(), IsEmpty());

    EXPECT_EQ(Post(GoodFrame), S_OK);
    EXPECT_THAT(posted, IsEmpty());
    EXPECT_THAT(fakes.TakeCalls(), IsEmpty());
    fakes.FailNothing();
    EXPECT_EQ(Post(L"media:record:start"), S_OK);
}

TEST_F(PageCaptureTest, ASuccessCodeOfTheWriterIsReturned) {
    ASSERT_EQ(Post(L"media:record:start"), S_OK);
    fakes.Fail("WriteSample", S_FALSE);
    EXPECT_EQ(Post(GoodFrame), S_FALSE);
    EXPECT_THAT(posted, IsEmpty());
    EXPECT_EQ(Post(L"media:record:stop"), S_OK);
}

TEST_F(PageCaptureTest, AFrameThatCannotBeParsedGivesNoSnapshot) {
    ASSERT_EQ(Post(L"frame:0:NV12"), E_INVALIDARG);
    EXPECT_EQ(Post(L"media:snapshot"), MF_E_NOT_AVAILABLE);
    EXPECT_THAT(posted, ElementsAre(MediaResult(L"snapshot", false, L"", 0xC00D36D6)));
}

TEST_F(PageCaptureTest, EveryQualityCommandEndsARecording) {
    for (const auto& [value, result] : {std::pair{L"720p", S_OK}, {L"1080p", S_OK}, {L"8k", E_INVALIDARG}}) {
        ASSERT_EQ(Post(L"media:record:start"), S_OK);
        Forget();
        EXPECT_EQ(Post(std::wstring(L"quality:") + value), result);
        EXPECT_THAT(posted, ElementsAre(MediaResult(L"recording-stopped", true, folders.VideoPath(), 0)));
        EXPECT_THAT(LogLines(), testing::Not(testing::Contains("Recording stopped")));
        EXPECT_EQ(Post(L"media:record:stop"), S_FALSE);
    }
    ASSERT_EQ(Post(L"media:record:start"), S_OK);
    fakes.Fail("Finalize", E_FAIL);
    EXPECT_EQ(Post(L"quality:1080p"), S_OK);
    EXPECT_THAT(posted, ElementsAre(MediaResult(L"recording-stopped", false, folders.VideoPath(), 0x80004005)));
}

TEST_F(PageCaptureTest, ARecordingThatCannotStartIsReported) {
    fakes.Fail("SetInputMediaType", static_cast<HRESULT>(0xC00D5212));
    EXPECT_EQ(Post(L"media:record:start"), static_cast<HRESULT>(0xC00D5212));
    EXPECT_THAT(posted, ElementsAre(MediaResult(L"recording-started", false, L"", 0xC00D5212)));
    EXPECT_THAT(LogLines(), ElementsAre("Recording started (HRESULT 0xC00D5212)"));
}

TEST_F(PageCaptureTest, TheEndOfTheReceiverFinalizesARecording) {
    ASSERT_EQ(Post(L"media:record:start"), S_OK);
    ASSERT_EQ(Post(GoodFrame), S_OK);
    (void)fakes.TakeCalls();
    EndReceiver();
    EXPECT_THAT(fakes.TakeCalls(), ElementsAre("Finalize", "released"));
}

} // namespace
} // namespace receiver
