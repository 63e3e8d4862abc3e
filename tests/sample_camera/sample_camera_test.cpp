// The built sample camera in a capture graph of the system's own filters, fed through real frame files.
#include "examples/camera/frame_reader.h"
#include "frames/shared_frame_file.h"
#include "platform/handles.h"
#include "platform/hresult.h"
#include "sample_camera/card.h"
#include "sample_camera/picture.h"
#include "tests/sample_camera/capture_graph.h"
#include "tests/sample_camera/held.h"
#include "tests/sample_camera/picture_reference.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace sample_camera {

static void PrintTo(const VideoFormat& format, std::ostream* stream);

namespace {

using receiver::PrivateFolder;
using receiver::SharedFrameFile;
using receiver::UniqueHandle;
using receiver::VariableScope;

constexpr VideoFormat Default = VideoFormats[0];

// Frames that differ in every byte from one to the next and are never taken for a card.
std::vector<std::uint8_t> Picture(PictureSize size, std::uint32_t number) {
    std::vector<std::uint8_t> nv12(ImageBytes({PixelFormat::Nv12, size}));
    std::uint32_t state = number;
    for (std::uint8_t& byte : nv12) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>((state >> 24) ^ number);
    }
    return nv12;
}

// What the camera delivers for a frame of `from` in `format`.
std::vector<std::uint8_t> Delivered(const std::vector<std::uint8_t>& frame, PictureSize from,
                                    const VideoFormat& format) {
    if (from == format.size) {
        return ReferenceConversion(frame.data(), format);
    }
    std::vector<std::uint8_t> scaled(ImageBytes({PixelFormat::Nv12, format.size}));
    ScaleNv12(frame.data(), from, scaled.data()); // judged by its own test
    return ReferenceConversion(scaled.data(), format);
}

std::vector<std::uint8_t> CardOf(const std::string& text, const VideoFormat& format) {
    std::vector<std::uint8_t> nv12(ImageBytes({PixelFormat::Nv12, format.size}));
    DrawCard("No picture: " + text, nv12.data(), format.size);
    return ReferenceConversion(nv12.data(), format);
}

// Whatever it says: the gray of its upper left corner is in no other picture there.
bool IsCard(const std::vector<std::uint8_t>& picture, const VideoFormat& format) {
    const std::vector<std::uint8_t> card = CardOf("", format);
    return std::equal(picture.begin(), picture.begin() + 64, card.begin());
}

std::string CardText(vistel::PictureState state) { return vistel::Text(state); }

class SampleCamera : public testing::Test {
protected:
    SampleCamera() {
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        std::filesystem::create_directory(path.parent_path());
    }
    ~SampleCamera() override { CoUninitialize(); }

    void Publish(PictureSize size, std::uint32_t number) {
        const std::vector<std::uint8_t> frame = Picture(size, number);
        ASSERT_EQ(file.PublishFrame(frame.data(), static_cast<std::uint32_t>(frame.size()), size.width, size.height),
                  S_OK);
    }

    // Publishes the frame and waits until `graph` delivers it in `format`. No other picture may come before, but for
    // cards and the frame before this one: on a machine that is busy elsewhere a frame may be stale before it is read,
    // and is published again.
    void ExpectDelivered(CaptureGraph& graph, PictureSize size, std::uint32_t number, const VideoFormat& format) {
        const std::vector<std::uint8_t> expected = Delivered(Picture(size, number), size, format);
        for (int attempt = 0; attempt < 30; ++attempt) {
            Publish(size, number);
            while (const std::optional<Sample> sample = graph.Next(std::chrono::seconds(2))) {
                if (sample->bytes == expected) {
                    last = expected;
                    return;
                }
                ASSERT_TRUE(IsCard(sample->bytes, format) || sample->bytes == last)
                    << "another picture, frame " << number;
            }
        }
        FAIL() << "frame " << number << " did not arrive";
    }

    // Waits for a sample with these bytes.
    [[nodiscard]] static bool WaitFor(CaptureGraph& graph, const std::vector<std::uint8_t>& bytes) {
        const auto end = std::chrono::steady_clock::now() + Limit;
        while (std::chrono::steady_clock::now() < end) {
            const std::optional<Sample> sample = graph.Next();
            if (sample && sample->bytes == bytes) {
                return true;
            }
        }
        return false;
    }

    const PrivateFolder folder;
    const std::filesystem::path path = folder.Path() / L"Vistel" / L"frame-buffer.bin";
    SharedFrameFile file;

private:
    const VariableScope programData{L"ProgramData", folder.Path().c_str()};
    std::vector<std::uint8_t> last;
};

std::string NameOf(const VideoFormat& format) {
    std::string name;
    for (int shift = 0; shift < 32; shift += 8) {
        name += static_cast<char>(FourCc(format.pixels) >> shift);
    }
    return name + std::to_string(format.size.height);
}

struct CaptureFormat : SampleCamera, testing::WithParamInterface<VideoFormat> {};

TEST_P(CaptureFormat, DeliversEachFrameExactlyOfEitherSize) {
    const VideoFormat format = GetParam();
    CaptureGraph graph;
    ASSERT_EQ(graph.SetFormat({format, ShortestInterval100ns}), S_OK);
    ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
    ASSERT_GE(graph.Run(), S_OK);
    for (std::uint32_t number = 1; number <= 20; ++number) {
        ExpectDelivered(graph, format.size, number, format);
    }
    // The receiver switches its size while the camera is open; the application's stays.
    for (std::uint32_t number = 21; number <= 32; ++number) {
        ExpectDelivered(graph, number % 4 < 2 ? Size720p : Size1080p, number, format);
    }
    EXPECT_EQ(graph.Stop(), S_OK);
}

INSTANTIATE_TEST_SUITE_P(Each, CaptureFormat, testing::ValuesIn(VideoFormats),
                         [](const auto& format) { return NameOf(format.param); });

TEST_F(SampleCamera, StreamsInEachCategoryThatApplicationsAskFor) {
    for (const GUID* const category :
         {&PIN_CATEGORY_CAPTURE, &PIN_CATEGORY_PREVIEW, static_cast<const GUID*>(nullptr)}) {
        CaptureGraph graph;
        ASSERT_GE(graph.Render(category), S_OK);
        ASSERT_GE(graph.Run(), S_OK);
        ExpectDelivered(graph, Size720p, 1, Default);
    }
}

TEST_F(SampleCamera, TwoApplicationsAtOnceReceiveEachFrame) {
    constexpr VideoFormat Other{PixelFormat::Yuy2, Size1080p};
    CaptureGraph first;
    CaptureGraph second;
    ASSERT_EQ(second.SetFormat({Other, ShortestInterval100ns}), S_OK);
    for (CaptureGraph* const graph : {&first, &second}) {
        ASSERT_EQ(graph->Render(&PIN_CATEGORY_CAPTURE), S_OK);
        ASSERT_GE(graph->Run(), S_OK);
    }
    for (std::uint32_t number = 1; number <= 10; ++number) {
        const std::vector<std::uint8_t> frame = Picture(Size720p, number);
        Publish(Size720p, number);
        EXPECT_TRUE(WaitFor(first, Delivered(frame, Size720p, Default))) << number;
        EXPECT_TRUE(WaitFor(second, Delivered(frame, Size720p, Other))) << number;
    }
}

TEST_F(SampleCamera, ShowsACardThatSaysWhatIsMissing) {
    CaptureGraph graph;
    ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
    ASSERT_GE(graph.Run(), S_OK);
    EXPECT_TRUE(WaitFor(graph, CardOf(CardText(vistel::PictureState::Missing) + ", error 2", Default)));
    std::filesystem::create_directory(path); // Opened as a file, a folder denies access.
    EXPECT_TRUE(WaitFor(graph, CardOf(CardText(vistel::PictureState::Denied) + ", error 5", Default)));
    std::filesystem::remove(path);
    {
        const receiver::UniqueFile locked(
            CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
        EXPECT_TRUE(WaitFor(graph, CardOf(CardText(vistel::PictureState::Failed) + ", error 32", Default)));
    }
    receiver::WriteBytes(path, "short");
    EXPECT_TRUE(WaitFor(graph, CardOf(CardText(vistel::PictureState::WrongSize), Default)));
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    EXPECT_TRUE(WaitFor(graph, CardOf(CardText(vistel::PictureState::NoFrameYet), Default)));
    ExpectDelivered(graph, Size720p, 1, Default);
    // The receiver ends and leaves its last frame.
    file.CloseSharedFrameFile();
    EXPECT_TRUE(WaitFor(graph, CardOf(CardText(vistel::PictureState::Stale), Default)));
    ExpectDelivered(graph, Size1080p, 2, Default);
}

TEST_F(SampleCamera, SaysThatTheFileIsDamagedOrOfAnotherVersion) {
    Publish(Size720p, 1);
    file.CloseSharedFrameFile();
    for (const auto& [offset, state] :
         {std::pair{12, vistel::PictureState::Damaged}, std::pair{4, vistel::PictureState::OtherVersion}}) {
        std::string bytes = receiver::ReadBytes(path);
        const char before = bytes[static_cast<std::size_t>(offset)];
        bytes[static_cast<std::size_t>(offset)] = 9;
        receiver::WriteBytes(path, bytes);
        {
            CaptureGraph graph;
            ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
            ASSERT_GE(graph.Run(), S_OK);
            EXPECT_TRUE(WaitFor(graph, CardOf(CardText(state), Default)));
        }
        bytes[static_cast<std::size_t>(offset)] = before;
        receiver::WriteBytes(path, bytes);
    }
}

TEST_F(SampleCamera, SignalsTheReceiversEventWithWhatItDelivers) {
    const UniqueHandle usage(CreateEventW(nullptr, FALSE, FALSE, vistel::UsageSignal::EventName));
    ASSERT_TRUE(usage);
    CaptureGraph graph;
    ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
    ASSERT_EQ(WaitForSingleObject(usage.Get(), 0), WAIT_TIMEOUT);
    ASSERT_GE(graph.Run(), S_OK);
    EXPECT_EQ(WaitForSingleObject(usage.Get(), 60000), WAIT_OBJECT_0);
}

TEST_F(SampleCamera, TimesRiseFromFrameToFrameAcrossAPauseAndBeginAgainAfterAStop) {
    CaptureGraph graph;
    ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
    REFERENCE_TIME lastStart = -1;
    const auto expectRise = [&] {
        for (int i = 0; i < 5; ++i) {
            const std::optional<Sample> sample = graph.Next();
            ASSERT_TRUE(sample && sample->timed);
            EXPECT_GT(sample->start, lastStart);
            EXPECT_EQ(sample->end, sample->start + ShortestInterval100ns);
            lastStart = sample->start;
        }
    };
    ASSERT_GE(graph.Run(), S_OK);
    expectRise();
    ASSERT_GE(graph.Pause(), S_OK);
    FILTER_STATE state{};
    EXPECT_EQ(graph.Camera()->GetState(0, &state), VFW_S_CANT_CUE);
    EXPECT_EQ(state, State_Paused);
    graph.ForgetSamples(); // one may have been on its way
    ASSERT_GE(graph.Run(), S_OK);
    expectRise();
    EXPECT_EQ(graph.SetFormat({VideoFormats[1], ShortestInterval100ns}), VFW_E_NOT_STOPPED);
    ASSERT_EQ(graph.Stop(), S_OK);
    EXPECT_EQ(graph.Camera()->GetState(0, &state), S_OK);
    EXPECT_EQ(state, State_Stopped);
    graph.ForgetSamples();

    // The stream's time is 0 at some moment after `before`. A renderer would hold back a sample of a time to come; with
    // the times of the run before, for as long as that run was. Wine's clock, which renderers wait with, may also hang
    // at the end of its graph once it was waited with.
    ComPtr<IReferenceClock> clock;
    ASSERT_EQ(graph.Camera()->GetSyncSource(clock.Put()), S_OK);
    REFERENCE_TIME before = 0;
    REFERENCE_TIME now = 0;
    ASSERT_GE(clock->GetTime(&before), S_OK);
    ASSERT_GE(graph.Run(), S_OK);
    const std::optional<Sample> sample = graph.Next();
    ASSERT_GE(clock->GetTime(&now), S_OK);
    ASSERT_TRUE(sample);
    EXPECT_LE(sample->start, now - before);
}

TEST_F(SampleCamera, TimesRiseWithoutAClockToo) {
    CaptureGraph graph;
    ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
    ASSERT_EQ(graph.RemoveClock(), S_OK);
    REFERENCE_TIME lastStart = -1;
    for (int run = 0; run < 3; ++run) {
        ASSERT_GE(graph.Run(), S_OK);
        ComPtr<IReferenceClock> clock;
        ASSERT_EQ(graph.Camera()->GetSyncSource(clock.Put()), S_OK);
        ASSERT_FALSE(clock);
        for (int i = 0; i < 3; ++i) {
            const std::optional<Sample> sample = graph.Next();
            ASSERT_TRUE(sample && sample->timed);
            EXPECT_GT(sample->start, lastStart);
            lastStart = sample->start;
        }
        ASSERT_GE(graph.Pause(), S_OK);
    }
}

TEST_F(SampleCamera, ASlowerRateLeavesFramesOut) {
    constexpr std::int64_t FifthOfASecond100ns = 2000000;
    CaptureGraph graph;
    ASSERT_EQ(graph.SetFormat({Default, FifthOfASecond100ns}), S_OK);
    ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
    ASSERT_GE(graph.Run(), S_OK);
    std::vector<REFERENCE_TIME> times;
    while (times.size() < 6) {
        Publish(Size720p, 1);
        while (const std::optional<Sample> sample = graph.Next(std::chrono::milliseconds(0))) {
            EXPECT_EQ(sample->end - sample->start, FifthOfASecond100ns);
            times.push_back(sample->start);
        }
        Sleep(5);
    }
    // Five intervals on a schedule: a late frame may come nearer to the next one, not to the one after that.
    EXPECT_GE(times[5] - times[0], 4 * FifthOfASecond100ns);
}

TEST_F(SampleCamera, StopsWhileAllItsBuffersAreHeldDownstream) {
    CaptureGraph graph;
    ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
    graph.HoldSamples();
    ASSERT_GE(graph.Run(), S_OK);
    ASSERT_TRUE(graph.WaitForHeld(3)); // how many of its four are given out is the allocator's matter
    EXPECT_EQ(graph.Stop(), S_OK);
}

TEST_F(SampleCamera, StopsWhileARendererThatIsPausedHoldsItsThread) {
    CaptureGraph graph;
    ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
    ASSERT_GE(graph.Run(), S_OK);
    ASSERT_TRUE(graph.Next());
    ASSERT_GE(graph.Renderer()->Pause(), S_OK);
    // The sample that comes after the one which was on its way is the last: its delivery does not return.
    while (graph.Next(std::chrono::seconds(1))) {
    }
    EXPECT_EQ(graph.Camera()->Stop(), S_OK);
}

TEST_F(SampleCamera, SurvivesEveryOrderOfTakingItDown) {
    {
        CaptureGraph graph;
        ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
        ASSERT_GE(graph.Run(), S_OK);
        ASSERT_TRUE(graph.Next());
        // Taken out while it runs, which Wine refuses when it finds it still running.
        EXPECT_THAT(graph.RemoveCamera(), testing::AnyOf(S_OK, VFW_E_NOT_STOPPED));
    }
    {
        CaptureGraph graph;
        ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
        ASSERT_GE(graph.Pause(), S_OK);
        // The graph ends while it is paused.
    }
    const ComPtr<IBaseFilter> camera = MakeCamera();
    {
        CaptureGraph graph(camera);
        ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
        ASSERT_GE(graph.Run(), S_OK);
    }
    // The camera outlives its graph and serves another one.
    CaptureGraph graph(camera);
    ASSERT_EQ(graph.Render(&PIN_CATEGORY_CAPTURE), S_OK);
    ASSERT_GE(graph.Run(), S_OK);
    ExpectDelivered(graph, Size720p, 1, Default);
}

// Without a graph: each of Wine's loses a handle of its own.
TEST_F(SampleCamera, FiveHundredRunsLeaveNothingBehind) {
    constexpr int WarmUp = 50;
    constexpr int Cycles = 500;
    const UniqueHandle usage(CreateEventW(nullptr, FALSE, FALSE, vistel::UsageSignal::EventName));
    ASSERT_TRUE(usage);
    const ComPtr<IBaseFilter> grabber = MakeGrabber();
    const ComPtr<IPin> input = InputPin(grabber);
    Held before;
    for (int cycle = 0; cycle < WarmUp + Cycles; ++cycle) {
        if (cycle == WarmUp) {
            before = Held::Now();
        }
        const ComPtr<IBaseFilter> camera = MakeCamera();
        const ComPtr<IPin> output = CapturePin(camera);
        ASSERT_EQ(output->Connect(input.Get(), nullptr), S_OK);
        for (const ComPtr<IBaseFilter>& filter : {grabber, camera}) {
            ASSERT_GE(filter->Pause(), S_OK);
            ASSERT_GE(filter->Run(0), S_OK);
        }
        ASSERT_EQ(WaitForSingleObject(usage.Get(), 60000), WAIT_OBJECT_0) << "the camera delivers";
        for (const ComPtr<IBaseFilter>& filter : {camera, grabber}) {
            ASSERT_EQ(filter->Stop(), S_OK);
        }
        ASSERT_EQ(input->Disconnect(), S_OK);
        ASSERT_EQ(output->Disconnect(), S_OK);
    }
    const Held after = Held::Now();
    std::printf("%d runs: %zu KiB and %lld handles before, %zu KiB and %lld handles after\n", Cycles,
                before.bytes / 1024, static_cast<long long>(before.handles), after.bytes / 1024,
                static_cast<long long>(after.handles));
    EXPECT_LE(after.bytes, before.bytes + Held::AllowedBytes);
    EXPECT_LE(after.handles, before.handles + 5);
}

} // namespace

// For the names of tests.
void PrintTo(const VideoFormat& format, std::ostream* stream) { *stream << NameOf(format); }

} // namespace sample_camera
