// camera_probe.exe as its users meet it: arguments, report, picture, exit code.
#include "platform/com_ptr.h"
#include "platform/hresult.h"
#include "tests/frames/frame_file_process.h"
#include "tests/frames/shared_frame_file_pattern.h"
#include "tests/support/test_files.h"
#include "tools/camera_probe/live_figures.h"
#include "tools/camera_probe/probe_report.h"

#include <windows.h>

#include <objbase.h>
#include <wincodec.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace receiver {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds Limit = 60s;

struct Picture {
    UINT width = 0;
    UINT height = 0;
    std::vector<std::uint8_t> bgr;

    [[nodiscard]] std::array<int, 3> RedGreenBlue(std::size_t x, std::size_t y) const {
        const std::uint8_t* const pixel = bgr.data() + 3 * (y * width + x);
        return {pixel[2], pixel[1], pixel[0]};
    }
};

HRESULT DecodePng(const std::filesystem::path& path, Picture& picture) {
    ComPtr<IWICImagingFactory> factory;
    RETURN_IF_FAILED(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                                      factory.PutVoid()));
    ComPtr<IWICBitmapDecoder> decoder;
    RETURN_IF_FAILED(factory->CreateDecoderFromFilename(path.c_str(), nullptr, GENERIC_READ,
                                                        WICDecodeMetadataCacheOnDemand, decoder.Put()));
    GUID container{};
    RETURN_IF_FAILED(decoder->GetContainerFormat(&container));
    EXPECT_TRUE(IsEqualGUID(container, GUID_ContainerFormatPng));
    ComPtr<IWICBitmapFrameDecode> frame;
    RETURN_IF_FAILED(decoder->GetFrame(0, frame.Put()));
    WICPixelFormatGUID format{};
    RETURN_IF_FAILED(frame->GetPixelFormat(&format));
    EXPECT_TRUE(IsEqualGUID(format, GUID_WICPixelFormat24bppBGR));
    RETURN_IF_FAILED(frame->GetSize(&picture.width, &picture.height));
    picture.bgr.resize(std::size_t{3} * picture.width * picture.height);
    return frame->CopyPixels(nullptr, 3 * picture.width, static_cast<UINT>(picture.bgr.size()), picture.bgr.data());
}

class CameraProbe : public testing::Test {
protected:
    CameraProbe() { EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    ~CameraProbe() override { CoUninitialize(); }

    [[nodiscard]] ChildProcess Start(const std::wstring& arguments) const {
        return {BuiltProgram(VISTEL_CAMERA_PROBE), arguments, folder.Path() / L"output.txt"};
    }

    // With report and picture.
    [[nodiscard]] ChildProcess StartReporting(const std::wstring& arguments) const {
        return Start(arguments + L" --report \"" + report.wstring() + L"\" --picture \"" + picture.wstring() + L'"');
    }

    const PrivateFolder folder;
    const std::filesystem::path report = folder.Path() / L"report.json";
    const std::filesystem::path picture = folder.Path() / L"picture of the camera.png";
    SharedFrameFile file;

private:
    const VariableScope programData{L"ProgramData", folder.Path().c_str()};
};

TEST_F(CameraProbe, WrongArgumentsGiveTheUsageAndExitCode2) {
    for (const wchar_t* arguments : {L"--seconds", L"--seconds -1", L"--seconds 1.5", L"--seconds x",
                                     L"--seconds 1000000", L"--seconds \"\"", L"--file", L"--signal", L"--report",
                                     L"--picture", L"--unknown 1", L"5", L"--seconds 0 extra", L"--watch 1"}) {
        const ChildProcess probe = Start(arguments);
        EXPECT_EQ(probe.WaitForExit(Limit), 2U);
        EXPECT_THAT(probe.Output(), testing::HasSubstr("usage: camera_probe")) << std::filesystem::path(arguments);
    }
}

TEST_F(CameraProbe, WithoutAFrameThePictureIsBlackAndTheReportEmpty) {
    const ChildProcess probe = StartReporting(L"--seconds 0");
    ASSERT_EQ(probe.WaitForExit(Limit), 0U) << probe.Output();
    EXPECT_THAT(probe.Output(), testing::HasSubstr("No frame was seen"));
    EXPECT_EQ(ReadBytes(report),
              "{\"framesRead\":0,\"tornReads\":0,\"retries\":0,\"framesPerSecond\":0.00,\"ageMs\":{\"median\":null,"
              "\"p99\":null,\"max\":null},\"width\":0,\"height\":0,\"sequence\":0}\n");
    Picture black;
    ASSERT_EQ(DecodePng(picture, black), S_OK);
    EXPECT_EQ(black.width, 1280U);
    EXPECT_EQ(black.height, 720U);
    EXPECT_EQ(black.bgr, std::vector<std::uint8_t>(std::size_t{3} * 1280 * 720));
}

// An event of the camera's kind, for this test alone.
std::wstring PrivateEventName() { return L"Local\\camera-probe-test-" + std::to_wstring(GetCurrentProcessId()); }

// Left half: red above, blue below; right half: white above, gray below.
std::vector<std::uint8_t> FourColors() {
    std::vector<std::uint8_t> frame(1382400);
    for (std::size_t y = 0; y < 720; ++y) {
        for (std::size_t x = 0; x < 1280; ++x) {
            const bool left = x < 640;
            const bool above = y < 360;
            frame[y * 1280 + x] = left ? (above ? 81 : 41) : (above ? 235 : 126);
            if (y % 2 == 0 && x % 2 == 0) {
                std::uint8_t* const chroma = frame.data() + 921600 + y / 2 * 1280 + x;
                chroma[0] = left ? (above ? 90 : 240) : 128;
                chroma[1] = left ? (above ? 240 : 110) : 128;
            }
        }
    }
    return frame;
}

TEST_F(CameraProbe, TakesTheNewestFrameAndItsColors) {
    const std::vector<std::uint8_t> frame = FourColors();
    ASSERT_EQ(PublishPattern(file, 3), S_OK);
    ASSERT_EQ(file.PublishFrame(frame.data(), 1382400, 1280, 720), S_OK);
    const ChildProcess probe = StartReporting(L"--seconds 0");
    ASSERT_EQ(probe.WaitForExit(Limit), 0U) << probe.Output();
    EXPECT_THAT(probe.Output(), testing::HasSubstr("1 frames read, 0 torn"));
    EXPECT_THAT(ReadBytes(report), testing::StartsWith("{\"framesRead\":1,\"tornReads\":0,\"retries\":0,"));
    EXPECT_THAT(ReadBytes(report), testing::EndsWith(",\"width\":1280,\"height\":720,\"sequence\":4}\n"));

    Picture colors;
    ASSERT_EQ(DecodePng(picture, colors), S_OK);
    ASSERT_EQ(colors.width, 1280U);
    ASSERT_EQ(colors.height, 720U);
    using Color = std::array<int, 3>;
    for (const auto& [x, y] : {std::array<std::size_t, 2>{0, 0}, {639, 0}, {0, 359}, {639, 359}}) {
        EXPECT_EQ(colors.RedGreenBlue(x, y), (Color{255, 0, 0}));
        EXPECT_EQ(colors.RedGreenBlue(x, y + 360), (Color{0, 0, 255}));
        EXPECT_EQ(colors.RedGreenBlue(x + 640, y), (Color{255, 255, 255}));
        EXPECT_EQ(colors.RedGreenBlue(x + 640, y + 360), (Color{128, 128, 128}));
    }
}

TEST_F(CameraProbe, ShowsTheFrameInAWindowUntilThatIsClosed) {
    const UniqueHandle usage(CreateEventW(nullptr, FALSE, FALSE, PrivateEventName().c_str()));
    const std::vector<std::uint8_t> frame = FourColors();
    const ChildProcess probe = StartReporting(L"--watch --signal " + PrivateEventName());
    HWND window = nullptr;
    const auto end = std::chrono::steady_clock::now() + Limit;
    while (IsWindowVisible(window = probe.Window(L"VistelCameraProbe")) == FALSE &&
           std::chrono::steady_clock::now() < end) {
        Sleep(1);
    }
    ASSERT_NE(IsWindowVisible(window), FALSE) << probe.Output();
    ASSERT_EQ(file.PublishFrame(frame.data(), 1382400, 1280, 720), S_OK);
    EXPECT_EQ(WaitForSingleObject(usage.Get(), static_cast<DWORD>(Limit.count())), WAIT_OBJECT_0);
    EXPECT_TRUE(probe.IsRunning());
    PostMessageW(window, WM_CLOSE, 0, 0);
    ASSERT_EQ(probe.WaitForExit(Limit), 0U) << probe.Output();
    EXPECT_THAT(ReadBytes(report), testing::StartsWith("{\"framesRead\":1,"));

    Picture shown;
    ASSERT_EQ(DecodePng(picture, shown), S_OK);
    EXPECT_EQ(shown.width, 1280U);
    ASSERT_GT(shown.height, 720U);
    using Color = std::array<int, 3>;
    EXPECT_EQ(shown.RedGreenBlue(0, 0), (Color{255, 0, 0}));
    EXPECT_EQ(shown.RedGreenBlue(639, 719), (Color{0, 0, 255}));
    EXPECT_EQ(shown.RedGreenBlue(1279, 719), (Color{128, 128, 128}));
    const auto figures = shown.bgr.begin() + 3 * 1280 * 720;
    EXPECT_EQ(*std::min_element(figures, shown.bgr.end()), 0);
    EXPECT_GT(*std::max_element(figures, shown.bgr.end()), 200) << "there is no text";
}

TEST_F(CameraProbe, WatchesUntilItsInputEnds) {
    constexpr std::uint32_t FrameCount = 50;
    ChildProcess probe = StartReporting(L"");
    for (std::uint32_t number = 1; number <= FrameCount; ++number) {
        ASSERT_EQ(PublishPattern(file, number), S_OK);
    }
    EXPECT_TRUE(probe.IsRunning());
    probe.Stop();
    ASSERT_EQ(probe.WaitForExit(Limit), 0U) << probe.Output();
    // The last frame is always seen, even if the probe missed some before.
    EXPECT_THAT(ReadBytes(report), testing::HasSubstr("\"tornReads\":0,"));
    EXPECT_THAT(ReadBytes(report), testing::EndsWith(",\"width\":1280,\"height\":720,\"sequence\":100}\n"));
    Picture last;
    ASSERT_EQ(DecodePng(picture, last), S_OK);
    EXPECT_EQ(last.width, 1280U);
}

TEST_F(CameraProbe, ReadsTheFileThatIsNamed) {
    ASSERT_EQ(PublishPattern(file, 3), S_OK);
    file.CloseSharedFrameFile();
    const std::filesystem::path named = folder.Path() / L"another file.bin";
    std::filesystem::rename(folder.Path() / L"Vistel" / L"frame-buffer.bin", named);
    const ChildProcess probe = StartReporting(L"--seconds 1 --file \"" + named.wstring() + L'"');
    ASSERT_EQ(probe.WaitForExit(Limit), 0U) << probe.Output();
    EXPECT_THAT(ReadBytes(report), testing::EndsWith(",\"width\":1920,\"height\":1080,\"sequence\":2}\n"));
}

TEST_F(CameraProbe, SignalsTheEventAsLongAsItReads) {
    const UniqueHandle event(CreateEventW(nullptr, FALSE, FALSE, PrivateEventName().c_str()));
    ChildProcess probe = Start(L"--signal " + PrivateEventName());
    for (int signals = 0; signals < 3; ++signals) {
        ASSERT_EQ(WaitForSingleObject(event.Get(), static_cast<DWORD>(Limit.count())), WAIT_OBJECT_0);
    }
    probe.Stop();
    ASSERT_EQ(probe.WaitForExit(Limit), 0U) << probe.Output();
    ResetEvent(event.Get());
    const ChildProcess newest = Start(L"--seconds 0 --signal " + PrivateEventName());
    ASSERT_EQ(newest.WaitForExit(Limit), 0U) << newest.Output();
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_TIMEOUT) << "one look is no use of the camera";
}

TEST_F(CameraProbe, MakesTheEventThatIsNotThereYet) {
    ChildProcess probe = Start(L"--signal " + PrivateEventName());
    const auto end = std::chrono::steady_clock::now() + Limit;
    UniqueHandle event;
    while (!event && std::chrono::steady_clock::now() < end) {
        event.Reset(OpenEventW(SYNCHRONIZE, FALSE, PrivateEventName().c_str()));
        if (!event) {
            Sleep(1);
        }
    }
    ASSERT_TRUE(event);
    EXPECT_EQ(WaitForSingleObject(event.Get(), static_cast<DWORD>(Limit.count())), WAIT_OBJECT_0);
    probe.Stop();
    ASSERT_EQ(probe.WaitForExit(Limit), 0U) << probe.Output();
    WaitForSingleObject(event.Get(), 0);
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_TIMEOUT) << "each signal is for one wait";
}

TEST_F(CameraProbe, ANameThatIsNoEventsGivesExitCode1) {
    const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, PrivateEventName().c_str()));
    const ChildProcess probe = Start(L"--seconds 1 --signal " + PrivateEventName());
    EXPECT_EQ(probe.WaitForExit(Limit), 1U);
    EXPECT_THAT(probe.Output(), testing::HasSubstr("The event could not be opened"));
}

TEST_F(CameraProbe, CountsAHeaderThatContradictsItselfAsATornRead) {
    ASSERT_EQ(PublishPattern(file, 3), S_OK);
    file.CloseSharedFrameFile();
    const std::filesystem::path path = folder.Path() / L"Vistel" / L"frame-buffer.bin";
    std::string bytes = ReadBytes(path);
    bytes[8] = 0; // of the width
    WriteBytes(path, bytes);
    const ChildProcess probe = StartReporting(L"--seconds 0");
    ASSERT_EQ(probe.WaitForExit(Limit), 0U) << probe.Output();
    EXPECT_THAT(ReadBytes(report), testing::StartsWith("{\"framesRead\":0,\"tornReads\":1,"));
}

TEST_F(CameraProbe, AReportOrPictureThatCannotBeWrittenGivesExitCode1) {
    const std::wstring missing = (folder.Path() / L"missing" / L"file").wstring();
    for (const wchar_t* option : {L"--report", L"--picture"}) {
        const ChildProcess probe = Start(L"--seconds 0 " + std::wstring(option) + L" \"" + missing + L'"');
        EXPECT_EQ(probe.WaitForExit(Limit), 1U);
        EXPECT_THAT(probe.Output(), testing::HasSubstr("could not be written"));
    }
}

TEST(ProbeReport, TellsRateAndAgesOfTheFramesPublishedWhileWatching) {
    ProbeReport report;
    vistel::FrameInfo frame;
    frame.width = 1920;
    frame.height = 1080;
    const ProbeReport::Clock::time_point start{};
    frame.sequence = 2;
    report.AddFrame(frame, 1000000, false, start - 10s); // an old frame
    for (std::uint64_t i = 0; i < 101; ++i) { // ages 100 down to 0
        frame.sequence += 2;
        report.AddFrame(frame, 100 - i, true, start + i * 40ms);
    }
    report.AddTornRead();
    report.SetRetries(7);
    EXPECT_EQ(report.FramesRead(), 102U);
    EXPECT_DOUBLE_EQ(report.FramesPerSecond(), 25.0);
    EXPECT_EQ(report.ToJson(),
              "{\"framesRead\":102,\"tornReads\":1,\"retries\":7,\"framesPerSecond\":25.00,\"ageMs\":{"
              "\"median\":50,\"p99\":99,\"max\":100},\"width\":1920,\"height\":1080,\"sequence\":204}\n");
}

TEST(ProbeReport, AnOldFrameCountsOnlyAsLongAsThereIsNoOther) {
    ProbeReport report;
    vistel::FrameInfo frame;
    frame.width = 1280;
    frame.height = 720;
    frame.sequence = 8;
    report.AddFrame(frame, 5000, false, ProbeReport::Clock::time_point{});
    EXPECT_EQ(report.FramesPerSecond(), 0.0);
    EXPECT_THAT(report.ToJson(), testing::HasSubstr("\"ageMs\":{\"median\":5000,\"p99\":5000,\"max\":5000}"));
    frame.sequence = 10;
    report.AddFrame(frame, 3, true, ProbeReport::Clock::time_point{});
    EXPECT_EQ(report.FramesPerSecond(), 0.0);
    EXPECT_THAT(report.ToJson(), testing::HasSubstr("\"ageMs\":{\"median\":3,\"p99\":3,\"max\":3}"));
}

TEST(LiveFigures, TellTheRateOfTheLastTwoSecondsAndTheAgeOfTheNewestFrame) {
    LiveFigures figures;
    vistel::FrameInfo frame;
    frame.width = 1280;
    frame.height = 720;
    LiveFigures::Clock::time_point now{};
    for (int i = 0; i < 100; ++i) {
        figures.AddFrame(now += 100ms, 9);
    }
    for (int i = 0; i < 60; ++i) { // three seconds at twice the rate
        figures.AddFrame(now += 50ms, 4);
    }
    EXPECT_EQ(figures.Text(now, frame, false, 1), L"1280 x 720     20.0 frames per second     4 ms old     1 torn");
    EXPECT_EQ(figures.Text(now + 3s, frame, false, 1), L"1280 x 720     0.0 frames per second     4 ms old     1 torn");
    EXPECT_EQ(figures.Text(now + 3s, frame, true, 1), L"No live picture     1 torn");
}

} // namespace
} // namespace receiver
