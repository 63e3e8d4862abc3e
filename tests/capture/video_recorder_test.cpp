#include "capture/video_recorder.h"

#include "tests/capture/capture_folders.h"
#include "tests/capture/sink_writer_fake.h"
#include "tests/support/allocation_fault.h"
#include "tests/support/function_patch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <mfapi.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace receiver {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr HRESULT Failure = static_cast<HRESULT>(0xC00D1234);
constexpr HRESULT AlreadyExists = static_cast<HRESULT>(0x800700B7);

std::uint64_t Ratio(std::uint32_t upper, std::uint32_t lower) { return std::uint64_t{upper} << 32 | lower; }

bool MediaFoundationIsUp() {
    DWORD queue = 0;
    return SUCCEEDED(MFAllocateSerialWorkQueue(MFASYNC_CALLBACK_QUEUE_STANDARD, &queue)) &&
           SUCCEEDED(MFUnlockWorkQueue(queue));
}

// The number of references held in addition to this one.
template <typename T>
ULONG OtherReferences(const ComPtr<T>& object) {
    object->AddRef();
    return object->Release() - 1;
}

class VideoRecorderTest : public testing::Test {
protected:
    void Start() { ASSERT_EQ(recorder->Start(640, 360, nullptr), S_OK); }
    HRESULT Write(std::uint8_t value = 128) {
        const std::vector<std::uint8_t> frame(FrameSize, value);
        return recorder->WriteFrame(frame.data(), FrameSize);
    }
    std::vector<LONGLONG> SampleTimes() const {
        std::vector<LONGLONG> times;
        for (const WrittenSample& sample : fakes.samples) {
            times.push_back(sample.time);
        }
        return times;
    }

    static constexpr std::int32_t FrameSize = 640 * 360 * 3 / 2;

    std::uint64_t tick = 5'000'000'000; // milliseconds
    const std::function<ULONGLONG(decltype(&GetTickCount64))> tellTick = [this](auto*) { return tick; };
    const ImportPatch<ULONGLONG(), std::function<ULONGLONG(decltype(&GetTickCount64))>> ticks{
        "kernel32.dll", "GetTickCount64", &GetTickCount64, tellTick};
    CaptureFolders folders;
    SinkWriterFakes fakes;
    std::optional<VideoRecorder> recorder{std::in_place};
    std::wstring path = L"untouched";
};

TEST_F(VideoRecorderTest, DropsFramesAndStopsNothingWhileIdle) {
    EXPECT_FALSE(recorder->Recording());
    EXPECT_EQ(Write(), S_FALSE);
    EXPECT_EQ(recorder->WriteFrame(nullptr, -1), S_FALSE);
    EXPECT_EQ(recorder->Stop(&path), S_FALSE);
    EXPECT_EQ(path, L"untouched");
    recorder.reset();
    EXPECT_THAT(fakes.calls, IsEmpty());
}

TEST_F(VideoRecorderTest, StartsAWriterForTheNewFile) {
    EXPECT_EQ(recorder->Start(1280, 720, &path), S_OK);
    EXPECT_TRUE(recorder->Recording());
    EXPECT_EQ(path, folders.VideoPath());
    EXPECT_EQ(fakes.url, path);
    EXPECT_THAT(fakes.TakeCalls(), ElementsAre("Create", "AddStream", "SetInputMediaType", "BeginWriting"));
    EXPECT_EQ(OtherReferences(fakes.outputType), 0U);
    EXPECT_EQ(OtherReferences(fakes.inputType), 0U);
}

struct PictureType {
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t bitsPerSecond;

    friend std::ostream& operator<<(std::ostream& out, const PictureType& type) {
        return out << type.width << "x" << type.height << " at " << type.bitsPerSecond << " bit/s";
    }
};

class VideoTypeTest : public VideoRecorderTest, public testing::WithParamInterface<PictureType> {
protected:
    static void ExpectType(IMFMediaType* type, const GUID& subtype, std::uint32_t attributes) {
        const PictureType& wanted = GetParam();
        GUID id{};
        EXPECT_EQ(type->GetGUID(MF_MT_MAJOR_TYPE, &id), S_OK);
        EXPECT_EQ(id, MFMediaType_Video);
        EXPECT_EQ(type->GetGUID(MF_MT_SUBTYPE, &id), S_OK);
        EXPECT_EQ(id, subtype);
        UINT32 number = 0;
        EXPECT_EQ(type->GetUINT32(MF_MT_INTERLACE_MODE, &number), S_OK);
        EXPECT_EQ(number, 2U);
        UINT64 pair = 0;
        EXPECT_EQ(type->GetUINT64(MF_MT_FRAME_SIZE, &pair), S_OK);
        EXPECT_EQ(pair, Ratio(wanted.width, wanted.height));
        EXPECT_EQ(type->GetUINT64(MF_MT_FRAME_RATE, &pair), S_OK);
        EXPECT_EQ(pair, Ratio(30, 1));
        EXPECT_EQ(type->GetUINT64(MF_MT_PIXEL_ASPECT_RATIO, &pair), S_OK);
        EXPECT_EQ(pair, Ratio(1, 1));
        EXPECT_EQ(type->GetCount(&number), S_OK);
        EXPECT_EQ(number, attributes);
    }
};

TEST_P(VideoTypeTest, EncodesNv12AsH264) {
    EXPECT_EQ(recorder->Start(GetParam().width, GetParam().height, nullptr), S_OK);
    ExpectType(fakes.outputType.Get(), MFVideoFormat_H264, 7);
    UINT32 rate = 0;
    EXPECT_EQ(fakes.outputType->GetUINT32(MF_MT_AVG_BITRATE, &rate), S_OK);
    EXPECT_EQ(rate, GetParam().bitsPerSecond);
    ExpectType(fakes.inputType.Get(), MFVideoFormat_NV12, 6);
}

INSTANTIATE_TEST_SUITE_P(Sizes, VideoTypeTest,
                         testing::Values(PictureType{1280, 720, 6'000'000}, PictureType{1920, 1080, 10'000'000},
                                         PictureType{1918, 4000, 6'000'000}, PictureType{1922, 2, 10'000'000}),
                         [](const auto& test) {
                             return std::to_string(test.param.width) + "x" + std::to_string(test.param.height);
                         });

TEST_F(VideoRecorderTest, ASecondStartIsRefusedAndTheRecordingContinues) {
    Start();
    (void)fakes.TakeCalls();
    folders.now.wMilliseconds = 43;
    EXPECT_EQ(recorder->Start(1280, 720, &path), AlreadyExists);
    EXPECT_EQ(path, L"untouched");
    EXPECT_EQ(Write(), S_OK);
    EXPECT_THAT(fakes.TakeCalls(), ElementsAre("WriteSample"));
    folders.now.wMilliseconds = 42;
    EXPECT_EQ(recorder->Stop(&path), S_OK);
    EXPECT_EQ(path, folders.VideoPath());
}

TEST_F(VideoRecorderTest, CreatesNothingWithoutAFolder) {
    folders.result = Failure;
    EXPECT_EQ(recorder->Start(640, 360, &path), Failure);
    EXPECT_FALSE(recorder->Recording());
    EXPECT_EQ(path, L"untouched");
    EXPECT_THAT(fakes.calls, IsEmpty());
    folders.result = S_OK;
    Start();
}

class FailedStartTest : public VideoRecorderTest,
                        public testing::WithParamInterface<std::pair<std::string, std::vector<std::string>>> {};

TEST_P(FailedStartTest, ReleasesEverythingAndStaysIdle) {
    const auto& [failing, calls] = GetParam();
    fakes.Fail(failing, Failure);
    EXPECT_EQ(recorder->Start(640, 360, &path), Failure);
    EXPECT_EQ(path, L"untouched");
    EXPECT_FALSE(recorder->Recording());
    EXPECT_FALSE(MediaFoundationIsUp());
    EXPECT_THAT(fakes.TakeCalls(), testing::ElementsAreArray(calls));
    for (const ComPtr<IMFMediaType>& type : {fakes.outputType, fakes.inputType}) {
        EXPECT_TRUE(!type || OtherReferences(type) == 1) << "besides the copy of the list";
    }
    EXPECT_EQ(std::filesystem::exists(folders.VideoPath()), failing != "Create");
    EXPECT_EQ(Write(), S_FALSE);
    EXPECT_EQ(recorder->Stop(&path), S_FALSE);
    EXPECT_THAT(fakes.TakeCalls(), IsEmpty());

    fakes.FailNothing();
    Start();
    EXPECT_EQ(Write(), S_OK);
    EXPECT_EQ(recorder->Stop(&path), S_OK);
    EXPECT_EQ(path, folders.VideoPath());
}

INSTANTIATE_TEST_SUITE_P(
    Steps, FailedStartTest,
    testing::Values(std::pair{"Create", std::vector<std::string>{"Create"}},
                    std::pair{"AddStream", std::vector<std::string>{"Create", "AddStream", "released"}},
                    std::pair{"SetInputMediaType",
                              std::vector<std::string>{"Create", "AddStream", "SetInputMediaType", "released"}},
                    std::pair{"BeginWriting", std::vector<std::string>{"Create", "AddStream", "SetInputMediaType",
                                                                       "BeginWriting", "released"}}),
    [](const auto& test) { return test.param.first; });

TEST_F(VideoRecorderTest, AMediaTypeThatCannotBeCreatedFailsTheStart) {
    for (const int failing : {1, 2}) {
        int types = 0;
        const ImportPatch creation(
            "mfplat.dll", "MFCreateMediaType", &MFCreateMediaType,
            [&](auto* original, IMFMediaType** type) { return ++types == failing ? Failure : original(type); });
        EXPECT_EQ(recorder->Start(640, 360, &path), Failure);
        EXPECT_EQ(types, failing);
        EXPECT_FALSE(recorder->Recording());
        EXPECT_EQ(fakes.TakeCalls().back(), "released");
    }
    EXPECT_EQ(path, L"untouched");
}

TEST_F(VideoRecorderTest, RefusedSettingsOfAMediaTypeAreIgnored) {
    ComPtr<IMFMediaType> type;
    ASSERT_EQ(MFCreateMediaType(type.Put()), S_OK);
    const auto refuse = [](auto*, auto...) { return Failure; };
    const MethodPatch guids(static_cast<IMFAttributes*>(type.Get()), &IMFAttributes::SetGUID, refuse);
    const MethodPatch numbers(static_cast<IMFAttributes*>(type.Get()), &IMFAttributes::SetUINT32, refuse);
    const MethodPatch pairs(static_cast<IMFAttributes*>(type.Get()), &IMFAttributes::SetUINT64, refuse);
    EXPECT_EQ(recorder->Start(640, 360, nullptr), S_OK);
    UINT32 count = 99;
    EXPECT_EQ(fakes.outputType->GetCount(&count), S_OK);
    EXPECT_EQ(count, 0U);
}

TEST_F(VideoRecorderTest, AFrameBecomesOneSample) {
    Start();
    std::vector<std::uint8_t> frame(FrameSize);
    for (std::size_t i = 0; i < frame.size(); ++i) {
        frame[i] = static_cast<std::uint8_t>(i * 31 + i / 256);
    }
    tick += 1234;
    EXPECT_EQ(recorder->WriteFrame(frame.data(), FrameSize), S_OK);
    ASSERT_EQ(fakes.samples.size(), 1U);
    EXPECT_EQ(fakes.samples[0].stream, SinkWriterFakes::StreamIndex);
    EXPECT_EQ(fakes.samples[0].time, 12'340'000);
    EXPECT_EQ(fakes.samples[0].duration, 333'333);
    EXPECT_EQ(fakes.samples[0].bytes, frame);
}

TEST_F(VideoRecorderTest, SampleTimesFollowTheClockAndAlwaysIncrease) {
    tick = 1000;
    Start();
    for (const std::uint64_t now : {1000U, 1000U, 1033U, 1033U, 1033U, 1020U, 900U, 1034U}) {
        tick = now;
        EXPECT_EQ(Write(), S_OK);
    }
    EXPECT_THAT(SampleTimes(), ElementsAre(0, 1, 330'000, 330'001, 330'002, 330'003, 330'004, 340'000));
}

TEST_F(VideoRecorderTest, TimeStartsWhenTheWriterIsReady) {
    fakes.onCall = [this](const std::string&) { tick += 500; };
    Start();
    fakes.onCall = nullptr;
    tick += 100;
    EXPECT_EQ(Write(), S_OK);
    EXPECT_THAT(SampleTimes(), ElementsAre(1'000'000));
}

TEST_F(VideoRecorderTest, NoReferenceToAFrameIsKept) {
    Start();
    for (const HRESULT result : {S_OK, Failure}) {
        fakes.Fail("WriteSample", result);
        EXPECT_EQ(Write(), result);
        ComPtr<IMFMediaBuffer> buffer;
        ASSERT_EQ(fakes.newestSample->GetBufferByIndex(0, buffer.Put()), S_OK);
        EXPECT_EQ(OtherReferences(fakes.newestSample), 0U);
        EXPECT_EQ(OtherReferences(buffer), 1U) << "besides the sample's own";
    }
}

TEST_F(VideoRecorderTest, EachRecordingStartsAtTimeZero) {
    Start();
    tick += 100;
    EXPECT_EQ(Write(), S_OK);
    EXPECT_EQ(recorder->Stop(nullptr), S_OK);
    tick += 100;
    Start();
    EXPECT_EQ(Write(), S_OK);
    EXPECT_THAT(SampleTimes(), ElementsAre(0));
}

TEST_F(VideoRecorderTest, ARejectedFrameDoesNotAdvanceTheTime) {
    Start();
    fakes.Fail("WriteSample", Failure);
    tick += 10;
    EXPECT_EQ(Write(), Failure);
    EXPECT_TRUE(recorder->Recording());
    fakes.FailNothing();
    EXPECT_EQ(Write(), S_OK);
    EXPECT_EQ(Write(), S_OK);
    EXPECT_THAT(SampleTimes(), ElementsAre(100'000, 100'001));
}

TEST_F(VideoRecorderTest, ASuccessCodeOfTheWriterIsReturned) {
    Start();
    fakes.Fail("WriteSample", S_FALSE);
    EXPECT_EQ(Write(), S_FALSE);
    EXPECT_EQ(Write(), S_FALSE);
    EXPECT_THAT(SampleTimes(), ElementsAre(0, 1));
}

TEST_F(VideoRecorderTest, AFrameOfAnotherSizeIsRefused) {
    Start();
    (void)fakes.TakeCalls();
    const std::vector<std::uint8_t> frame(FrameSize + 1);
    for (const std::int32_t size : {FrameSize - 1, FrameSize + 1, 0, -1, -FrameSize}) {
        EXPECT_EQ(recorder->WriteFrame(frame.data(), size), E_INVALIDARG) << size;
    }
    EXPECT_EQ(recorder->WriteFrame(nullptr, FrameSize), E_INVALIDARG);
    EXPECT_THAT(fakes.TakeCalls(), IsEmpty());
    EXPECT_TRUE(recorder->Recording());
    EXPECT_EQ(recorder->WriteFrame(frame.data(), FrameSize), S_OK);
}

TEST_F(VideoRecorderTest, ABufferOrSampleThatCannotBeCreatedIsReported) {
    Start();
    {
        const ImportPatch buffers("mfplat.dll", "MFCreateMemoryBuffer", &MFCreateMemoryBuffer,
                                  [](auto*, DWORD size, IMFMediaBuffer**) {
                                      EXPECT_EQ(size, static_cast<DWORD>(FrameSize));
                                      return E_OUTOFMEMORY;
                                  });
        EXPECT_EQ(Write(), E_OUTOFMEMORY);
    }
    {
        const ImportPatch samples("mfplat.dll", "MFCreateSample", &MFCreateSample,
                                  [](auto*, IMFSample**) { return Failure; });
        EXPECT_EQ(Write(), Failure);
    }
    EXPECT_THAT(fakes.samples, IsEmpty());
    EXPECT_TRUE(recorder->Recording());
    EXPECT_EQ(Write(), S_OK);
}

// Media Foundation's own objects with one method replaced.
class FrameObjectsTest : public VideoRecorderTest {
protected:
    void SetUp() override {
        ASSERT_EQ(MFCreateMemoryBuffer(FrameSize, buffer.Put()), S_OK);
        ASSERT_EQ(MFCreateSample(sample.Put()), S_OK);
        Start();
        (void)fakes.TakeCalls();
    }

    ComPtr<IMFMediaBuffer> buffer;
    ComPtr<IMFSample> sample;
};

TEST_F(FrameObjectsTest, ABufferThatCannotBeLockedIsReported) {
    ComPtr<IMFMediaBuffer> used;
    {
        const MethodPatch lock(buffer.Get(), &IMFMediaBuffer::Lock,
                               [&](auto*, IMFMediaBuffer* self, BYTE**, DWORD* capacity, DWORD* length) {
                                   EXPECT_EQ(capacity, nullptr);
                                   EXPECT_EQ(length, nullptr);
                                   used = ComPtr<IMFMediaBuffer>(self);
                                   return Failure;
                               });
        EXPECT_EQ(Write(), Failure);
    }
    EXPECT_EQ(OtherReferences(used), 0U);
    EXPECT_THAT(fakes.TakeCalls(), IsEmpty());
    EXPECT_EQ(Write(), S_OK);
}

TEST_F(FrameObjectsTest, ASampleThatRefusesItsBufferIsReported) {
    ComPtr<IMFSample> used;
    ComPtr<IMFMediaBuffer> usedBuffer;
    {
        const MethodPatch adding(sample.Get(), &IMFSample::AddBuffer,
                                 [&](auto*, IMFSample* self, IMFMediaBuffer* added) {
                                     used = ComPtr<IMFSample>(self);
                                     usedBuffer = ComPtr<IMFMediaBuffer>(added);
                                     return Failure;
                                 });
        EXPECT_EQ(Write(), Failure);
    }
    EXPECT_EQ(OtherReferences(used), 0U);
    EXPECT_EQ(OtherReferences(usedBuffer), 0U);
    EXPECT_THAT(fakes.TakeCalls(), IsEmpty());
    EXPECT_EQ(Write(), S_OK);
}

TEST_F(FrameObjectsTest, ResultsOfCallsThatCannotFailAreIgnored) {
    int refused = 0;
    const auto callThenRefuse = [&](auto* original, auto... arguments) {
        (void)original(arguments...);
        ++refused;
        return Failure;
    };
    const MethodPatch unlock(buffer.Get(), &IMFMediaBuffer::Unlock, callThenRefuse);
    const MethodPatch length(buffer.Get(), &IMFMediaBuffer::SetCurrentLength, callThenRefuse);
    const MethodPatch time(sample.Get(), &IMFSample::SetSampleTime, callThenRefuse);
    const MethodPatch duration(sample.Get(), &IMFSample::SetSampleDuration, callThenRefuse);
    fakes.Fail("WriteSample", E_PENDING); // before the fake reads the sample with these methods
    EXPECT_EQ(Write(), E_PENDING);
    EXPECT_EQ(refused, 4);
}

TEST_F(VideoRecorderTest, KeepsMediaFoundationUpForItsWriter) {
    EXPECT_FALSE(MediaFoundationIsUp());
    Start();
    EXPECT_TRUE(MediaFoundationIsUp());
    EXPECT_EQ(recorder->Stop(nullptr), S_OK);
    EXPECT_FALSE(MediaFoundationIsUp());
    Start();
    EXPECT_EQ(recorder->Start(640, 360, nullptr), AlreadyExists);
    EXPECT_TRUE(MediaFoundationIsUp());
    fakes.Fail("Finalize", Failure);
    EXPECT_EQ(recorder->Stop(nullptr), Failure);
    EXPECT_FALSE(MediaFoundationIsUp());
    Start();
    recorder.reset();
    EXPECT_FALSE(MediaFoundationIsUp());
}

TEST_F(VideoRecorderTest, DoesNotStartWithoutMediaFoundation) {
    const ImportPatch startup("mfplat.dll", "MFStartup", &MFStartup, [](auto*, ULONG version, DWORD flags) {
        EXPECT_EQ(version, 0x00020070U);
        EXPECT_EQ(flags, 0U);
        return Failure;
    });
    EXPECT_EQ(recorder->Start(640, 360, &path), Failure);
    EXPECT_EQ(path, L"untouched");
    EXPECT_FALSE(recorder->Recording());
    EXPECT_THAT(fakes.calls, IsEmpty());
}

TEST_F(VideoRecorderTest, StopFinalizesTheFile) {
    Start();
    EXPECT_EQ(Write(), S_OK);
    (void)fakes.TakeCalls();
    EXPECT_EQ(recorder->Stop(&path), S_OK);
    EXPECT_THAT(fakes.TakeCalls(), ElementsAre("Finalize", "released"));
    EXPECT_EQ(path, folders.VideoPath());
    EXPECT_FALSE(recorder->Recording());
    EXPECT_EQ(Write(), S_FALSE);
    EXPECT_EQ(recorder->Stop(&path), S_FALSE);
    EXPECT_EQ(path, folders.VideoPath());
    EXPECT_THAT(fakes.TakeCalls(), IsEmpty());
}

TEST_F(VideoRecorderTest, StopAcceptsANullOutput) {
    Start();
    EXPECT_EQ(recorder->Stop(nullptr), S_OK);
    EXPECT_FALSE(recorder->Recording());
}

TEST_F(VideoRecorderTest, AFailedFinalizeLeavesTheRecorderIdle) {
    Start();
    fakes.Fail("Finalize", Failure);
    (void)fakes.TakeCalls();
    EXPECT_EQ(recorder->Stop(&path), Failure);
    EXPECT_THAT(fakes.TakeCalls(), ElementsAre("Finalize", "released"));
    EXPECT_EQ(path, folders.VideoPath());
    EXPECT_FALSE(recorder->Recording());
    Start();
}

TEST_F(VideoRecorderTest, DestructionFinalizesTheFile) {
    Start();
    (void)fakes.TakeCalls();
    recorder.reset();
    EXPECT_THAT(fakes.TakeCalls(), ElementsAre("Finalize", "released"));
}

TEST_F(VideoRecorderTest, StaysIdleWhenMemoryRunsOut) {
    bool failed = true;
    for (unsigned allocation = 0; failed; ++allocation) {
        ASSERT_LT(allocation, 100U);
        {
            const AllocationFault fault(allocation);
            const HRESULT result = recorder->Start(640, 360, &path);
            failed = fault.Happened();
            EXPECT_EQ(result, failed ? E_OUTOFMEMORY : S_OK);
        }
        EXPECT_EQ(recorder->Recording(), !failed);
        EXPECT_EQ(path, failed ? L"untouched" : folders.VideoPath());
    }
}

} // namespace
} // namespace receiver
