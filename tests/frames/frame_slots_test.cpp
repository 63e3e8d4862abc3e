// The two frame slots, and a frame from the page's message to the shared frame file.
#include "frames/frame_file.h"
#include "tests/support/shell_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t SlotBytes = 8294400;
constexpr wchar_t GoodFrameInSlot1[] = L"frame:1:NV12:1280:720:0:0:0:1280:720:0,1280;921600,1280";
constexpr HRESULT PathNotFound = static_cast<HRESULT>(0x80070003);

class FrameSlotsTest : public ShellTest {
protected:
    void SetUp() override {
        OpenBrowser();
        std::filesystem::remove(log);
    }
    void PostSlots() {
        ASSERT_EQ(app->CreateAndPostFrameSlots(), S_OK);
        (void)browser.TakeCalls();
    }
    // Fills the bytes of slot 0 that GoodFrame reads, and returns the slot.
    const std::uint8_t* FillSlot() {
        std::uint8_t* const slot = browser.BufferMemory(0);
        for (std::size_t i = 0; i < 1382400; ++i) {
            slot[i] = static_cast<std::uint8_t>(i * 7 + i / 1280);
        }
        return slot;
    }
    // The file as a camera reads it.
    std::unique_ptr<FrameFileLayout> ReadFrameFile() const {
        auto file = std::make_unique<FrameFileLayout>();
        const std::string bytes = ReadBytes(programData / L"Vistel" / L"frame-buffer.bin");
        EXPECT_EQ(bytes.size(), sizeof(*file));
        std::memcpy(file.get(), bytes.data(), std::min(bytes.size(), sizeof(*file)));
        return file;
    }
};

TEST_F(FrameSlotsTest, CreatesAndPostsTwoSlotsInOrder) {
    EXPECT_EQ(app->CreateAndPostFrameSlots(), S_OK);
    EXPECT_THAT(browser.TakeCalls(),
                ElementsAre(L"ICoreWebView2Environment12", L"ICoreWebView2_17", L"CreateSharedBuffer 8294400",
                            L"get_Buffer", L"PostSharedBufferToScript SharedBuffer0 1 {\"slot\":0}",
                            L"CreateSharedBuffer 8294400", L"get_Buffer",
                            L"PostSharedBufferToScript SharedBuffer1 1 {\"slot\":1}"));
    EXPECT_TRUE(std::filesystem::exists(programData / L"Vistel" / L"frame-buffer.bin"));
    EndReceiver();
    EXPECT_THAT(browser.TakeCalls(), ElementsAre(L"released SharedBuffer1", L"released SharedBuffer0",
                                                 L"released WebView", L"released Controller", L"released Environment"));
}

TEST_F(FrameSlotsTest, CreatesNothingWithoutABrowser) {
    ReceiverApp withoutBrowser;
    EXPECT_EQ(withoutBrowser.CreateAndPostFrameSlots(), E_POINTER);
    EXPECT_THAT(browser.TakeCalls(), IsEmpty());
}

TEST_F(FrameSlotsTest, ARuntimeWithoutSharedBuffersIsReported) {
    browser.Fail(L"ICoreWebView2Environment12", E_NOINTERFACE);
    EXPECT_EQ(app->CreateAndPostFrameSlots(), E_NOINTERFACE);
    EXPECT_THAT(browser.TakeCalls(), ElementsAre(L"ICoreWebView2Environment12"));
    EXPECT_TRUE(std::filesystem::is_empty(programData));
}

TEST_F(FrameSlotsTest, AWebViewWithoutSharedBuffersIsReported) {
    browser.Fail(L"ICoreWebView2_17", E_NOINTERFACE);
    EXPECT_EQ(app->CreateAndPostFrameSlots(), E_NOINTERFACE);
    EXPECT_THAT(browser.TakeCalls(), ElementsAre(L"ICoreWebView2Environment12", L"ICoreWebView2_17"));
}

TEST_F(FrameSlotsTest, CreatesNoSlotWithoutTheSharedFile) {
    std::filesystem::remove(programData);
    EXPECT_EQ(app->CreateAndPostFrameSlots(), PathNotFound);
    EXPECT_THAT(browser.TakeCalls(), ElementsAre(L"ICoreWebView2Environment12", L"ICoreWebView2_17"));
    std::filesystem::create_directory(programData);
    EXPECT_EQ(app->CreateAndPostFrameSlots(), S_OK);
}

struct SlotFailure {
    const wchar_t* method;
    unsigned slot;
    std::size_t callsMade; // after the two queries
};

std::ostream& operator<<(std::ostream& stream, const SlotFailure& failure) {
    const std::wstring_view method = failure.method;
    return stream << std::string(method.begin(), method.end()) << failure.slot;
}

class SlotFailureTest : public FrameSlotsTest, public testing::WithParamInterface<SlotFailure> {};

TEST_P(SlotFailureTest, FailsTheCreationWithItsCode) {
    browser.Fail(GetParam().method, E_ABORT, GetParam().slot);
    EXPECT_EQ(app->CreateAndPostFrameSlots(), E_ABORT);
    const auto calls = browser.TakeCalls();
    ASSERT_EQ(calls.size(), 2 + GetParam().callsMade);
    EXPECT_THAT(calls.back(), testing::StartsWith(GetParam().method));
}

TEST_P(SlotFailureTest, KeepsNoOldSlotAfterAReload) {
    PostSlots();
    browser.Fail(GetParam().method, E_ABORT, 2 + GetParam().slot);
    EXPECT_EQ(app->CreateAndPostFrameSlots(), E_ABORT);
    const auto calls = browser.TakeCalls();
    EXPECT_THAT(calls, testing::Contains(L"released SharedBuffer" + std::to_wstring(GetParam().slot)));

    const bool filled = std::wstring_view(GetParam().method) == L"PostSharedBufferToScript";
    EXPECT_EQ(app->HandleFrameMessage(GetParam().slot == 0 ? GoodFrame : GoodFrameInSlot1),
              filled ? S_OK : E_INVALIDARG);
    EXPECT_EQ(app->HandleFrameMessage(GetParam().slot == 0 ? GoodFrameInSlot1 : GoodFrame), S_OK);
}

INSTANTIATE_TEST_SUITE_P(FrameSlotsTest, SlotFailureTest,
                         testing::Values(SlotFailure{L"CreateSharedBuffer", 0, 1}, SlotFailure{L"get_Buffer", 0, 2},
                                         SlotFailure{L"PostSharedBufferToScript", 0, 3},
                                         SlotFailure{L"CreateSharedBuffer", 1, 4}, SlotFailure{L"get_Buffer", 1, 5},
                                         SlotFailure{L"PostSharedBufferToScript", 1, 6}));

TEST_F(FrameSlotsTest, AReloadReplacesBothSlots) {
    PostSlots();
    EXPECT_EQ(app->CreateAndPostFrameSlots(), S_OK);
    EXPECT_THAT(browser.TakeCalls(),
                ElementsAre(L"ICoreWebView2Environment12", L"ICoreWebView2_17", L"released SharedBuffer0",
                            L"CreateSharedBuffer 8294400", L"get_Buffer",
                            L"PostSharedBufferToScript SharedBuffer2 1 {\"slot\":0}", L"released SharedBuffer1",
                            L"CreateSharedBuffer 8294400", L"get_Buffer",
                            L"PostSharedBufferToScript SharedBuffer3 1 {\"slot\":1}"));
    std::memset(browser.BufferMemory(2), 77, SlotBytes);
    EXPECT_EQ(app->HandleFrameMessage(GoodFrame), S_OK);
    EXPECT_EQ(ReadFrameFile()->buffers[1][0], 77);
}

TEST_F(FrameSlotsTest, AFrameBeforeTheSlotsIsRefusedSilently) {
    EXPECT_EQ(app->HandleFrameMessage(GoodFrame), E_INVALIDARG);
    EXPECT_FALSE(std::filesystem::exists(log));
}

TEST_F(FrameSlotsTest, AMessageWithoutASlotNumberIsRefusedSilently) {
    PostSlots();
    for (const wchar_t* message :
         {L"frame:", L"frame:0", L"frame:0:", L"frame:2:NV12:1280:720:0:0:0:1280:720:0,1280;921600,1280",
          L"frame:::NV12:1280", L"frame:0;NV12:1280:720", L"frame:00:NV12:1280:720", L"frame: 0:NV12",
          L"frame:-1:NV12"}) {
        EXPECT_EQ(app->HandleFrameMessage(message), E_INVALIDARG);
    }
    EXPECT_FALSE(std::filesystem::exists(log));
    EXPECT_EQ(app->HandleFrameMessage(GoodFrame), S_OK); // This is still the first frame.
    EXPECT_EQ(LogLines().size(), 2U);
}

TEST_F(FrameSlotsTest, OnlyTheFirstFrameIsLogged) {
    PostSlots();
    EXPECT_EQ(app->HandleFrameMessage(GoodFrameInSlot1), S_OK);
    EXPECT_EQ(app->HandleFrameMessage(GoodFrame), S_OK);
    EXPECT_THAT(LogLines(), ElementsAre("First frame descriptor: "
                                        "frame:1:NV12:1280:720:0:0:0:1280:720:0,1280;921600,1280",
                                        "First browser frame published"));
}

TEST_F(FrameSlotsTest, TheFirstFrameIsLoggedOnceEvenWhenItFails) {
    PostSlots();
    EXPECT_EQ(app->HandleFrameMessage(L"frame:0:x"), E_INVALIDARG);
    EXPECT_EQ(app->HandleFrameMessage(GoodFrame), S_OK);
    EXPECT_THAT(LogLines(),
                ElementsAre("First frame descriptor: frame:0:x", "First browser frame published (HRESULT 0x80070057)"));
}

TEST_F(FrameSlotsTest, AFrameOfTheOutputSizeIsPublishedByteForByte) {
    PostSlots();
    const std::uint8_t* const slot = FillSlot();
    EXPECT_EQ(app->HandleFrameMessage(GoodFrame), S_OK);
    const auto file = ReadFrameFile();
    EXPECT_EQ(file->header.magic, FrameFileMagic);
    EXPECT_EQ(file->header.width, 1280U);
    EXPECT_EQ(file->header.height, 720U);
    EXPECT_EQ(file->header.stride, 1280U);
    EXPECT_EQ(file->header.frameSize, 1382400U);
    EXPECT_EQ(file->header.sequence, 2U);
    EXPECT_EQ(file->header.activeBuffer, 1U);
    EXPECT_NE(file->header.timestamp, 0U);
    EXPECT_EQ(std::memcmp(file->buffers[1], slot, 1382400), 0);
}

// After 49.7 days a count of milliseconds needs more than 32 bits.
TEST_F(FrameSlotsTest, TheTimeStampHasAllBitsOfTheClock) {
    PostSlots();
    static constexpr ULONGLONG Now = 0x0123456789ABCDEF;
    const ImportPatch clock("kernel32.dll", "GetTickCount64", &GetTickCount64, [](auto*) { return Now; });
    EXPECT_EQ(app->HandleFrameMessage(GoodFrame), S_OK);
    EXPECT_EQ(FrameHeader().timestamp, Now);
}

TEST_F(FrameSlotsTest, FramesAlternateBetweenTheBuffers) {
    PostSlots();
    std::memset(browser.BufferMemory(0), 50, SlotBytes);
    std::memset(browser.BufferMemory(1), 60, SlotBytes);
    EXPECT_EQ(app->HandleFrameMessage(GoodFrame), S_OK);
    EXPECT_EQ(app->HandleFrameMessage(GoodFrameInSlot1), S_OK);
    const auto file = ReadFrameFile();
    EXPECT_EQ(file->header.sequence, 4U);
    EXPECT_EQ(file->header.activeBuffer, 0U);
    EXPECT_EQ(file->buffers[1][0], 50);
    EXPECT_EQ(file->buffers[0][0], 60);
}

TEST_F(FrameSlotsTest, APackedFrameIsFittedAndConverted) {
    PostSlots();
    std::memset(browser.BufferMemory(1), 255, SlotBytes);
    EXPECT_EQ(app->HandleFrameMessage(L"frame:1:RGBA:640:480:0:0:0:640:480:0,2560"), S_OK);
    const auto file = ReadFrameFile();
    const std::uint8_t* const middleRow = file->buffers[1] + 360 * 1280;
    EXPECT_EQ(middleRow[159], 16);
    EXPECT_EQ(middleRow[160], 235);
    EXPECT_EQ(middleRow[1119], 235);
    EXPECT_EQ(middleRow[1120], 16);
    EXPECT_THAT(std::vector<std::uint8_t>(file->buffers[1] + 1280 * 720, file->buffers[1] + 1382400), Each(128));
}

TEST_F(FrameSlotsTest, AFrameThatCannotBeConvertedIsNotPublished) {
    PostSlots();
    EXPECT_EQ(app->HandleFrameMessage(GoodFrame), S_OK);
    struct {
        const wchar_t* message;
        HRESULT result;
    } const frames[] = {
        {L"frame:0:YUY2:1280:720:0:0:0:1280:720:0,2560", static_cast<HRESULT>(0xC00D36B4)},
        {L"frame:0:NV12:1280:720:0:0:0:1280:720:0,1280", static_cast<HRESULT>(0xC00D36B4)},
        {L"frame:0:NV12:1280:720:0:0,1280;921600,1280", E_INVALIDARG},
        {L"frame:0:RGBA:4096:2160:0:0:0:4096:2160:0,16384", E_INVALIDARG},
        {L"frame:0:RGBA:1920:1080:0:0:0:1920:1080:4,7680", E_INVALIDARG},
        {L"frame:0:RGBA:1280:720:0:0:0:1280:720:0,18446744073709551615", E_INVALIDARG},
        {L"frame:0:NV12:1280:720:0:0:0:1280:720:0,1280;921600,18446744073709551615", E_INVALIDARG},
    };
    for (const auto& frame : frames) {
        EXPECT_EQ(app->HandleFrameMessage(frame.message), frame.result);
    }
    EXPECT_EQ(ReadFrameFile()->header.sequence, 2U);
}

TEST_F(FrameSlotsTest, AFrameThatFillsItsSlotToTheLastByteIsPublished) {
    PostSlots();
    std::memset(browser.BufferMemory(0), 255, SlotBytes);
    EXPECT_EQ(app->HandleFrameMessage(L"frame:0:BGRX:1920:1080:0:0:0:1920:1080:0,7680"), S_OK);
    EXPECT_EQ(ReadFrameFile()->buffers[1][1280 * 720 - 1], 235);
}

TEST_F(FrameSlotsTest, FramesOfTheSameGeometryAllocateNothing) {
    PostSlots();
    for (const wchar_t* message : {GoodFrame, L"frame:0:I420A:640:480:0:90:1:640:480:0,640;400000,320;500000,320;0,640",
                                   L"frame:0:BGRX:640:480:1:0:0:640:480:0,2560;"}) {
        EXPECT_EQ(browser.RaiseWebMessage(message), S_OK);
        const AllocationFault fault(0);
        EXPECT_EQ(browser.RaiseWebMessage(message), S_OK);
        EXPECT_FALSE(fault.Happened()) << message;
    }
}

TEST_F(FrameSlotsTest, ARefusedMessageDoesNotAffectTheNextFrame) {
    PostSlots();
    const std::uint8_t* const slot = FillSlot();
    // Each is refused at a different field, and the fields before it have other values than GoodFrame.
    for (const wchar_t* refused :
         {L"frame:0:RGBA", L"frame:0:RGBA:640:481:", L"frame:0:RGBA:640:480:1:90:2:", L"frame:0:RGBA:640:480:1:90:1:9:",
          L"frame:0:RGBA:640:480:1:90:1:9:16:", L"frame:0:RGBA:640:480:1:90:1:9:16:7,2560;8,2560;9,2560;x"}) {
        EXPECT_EQ(app->HandleFrameMessage(refused), E_INVALIDARG);
        // One plane is too few, also after a message with more.
        EXPECT_EQ(app->HandleFrameMessage(L"frame:0:NV12:1280:720:0:0:0:1280:720:0,1280"),
                  static_cast<HRESULT>(0xC00D36B4));
        EXPECT_EQ(app->HandleFrameMessage(refused), E_INVALIDARG);
        EXPECT_EQ(app->HandleFrameMessage(GoodFrame), S_OK);
        const auto file = ReadFrameFile();
        EXPECT_EQ(std::memcmp(file->buffers[file->header.activeBuffer], slot, 1382400), 0) << refused;
    }
}

TEST_F(FrameSlotsTest, AFrameIsPublishedOnceMemoryIsAvailableAgain) {
    PostSlots();
    bool failed = true;
    for (unsigned allocation = 0; failed; ++allocation) {
        ASSERT_LT(allocation, 1000U);
        const AllocationFault fault(allocation);
        const HRESULT result = browser.RaiseWebMessage(GoodFrame);
        failed = fault.Happened();
        EXPECT_TRUE(result == S_OK || (failed && result == E_OUTOFMEMORY)) << result;
    }
    EXPECT_GT(ReadFrameFile()->header.sequence, 0U);
}

} // namespace
} // namespace receiver
