// What the recorder expects of Media Foundation's sink writer.
#include "platform/com_ptr.h"
#include "platform/hresult.h"
#include "platform/media_foundation.h"
#include "tests/contract/clause.h"
#include "tests/support/apartment.h"
#include "tests/support/test_files.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <mfapi.h>
#include <mfidl.h>
#include <mfreadwrite.h>

#include <cstring>
#include <filesystem>
#include <string>

namespace receiver {
namespace {

constexpr UINT32 Width = 640;
constexpr UINT32 Height = 480;
constexpr DWORD FrameBytes = Width * Height * 3 / 2;
constexpr LONGLONG FrameDuration100ns = 333'333;

class SinkWriterContract : public testing::Test {
protected:
    SinkWriterContract() { SimulatedByTheRig(); }

    static ComPtr<IMFMediaType> Type(const GUID& subtype) {
        ComPtr<IMFMediaType> type;
        EXPECT_EQ(MFCreateMediaType(type.Put()), S_OK);
        EXPECT_EQ(type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video), S_OK);
        EXPECT_EQ(type->SetGUID(MF_MT_SUBTYPE, subtype), S_OK);
        if (subtype == MFVideoFormat_H264) {
            EXPECT_EQ(type->SetUINT32(MF_MT_AVG_BITRATE, 1'000'000), S_OK);
        }
        EXPECT_EQ(type->SetUINT32(MF_MT_INTERLACE_MODE, MFVideoInterlace_Progressive), S_OK);
        EXPECT_EQ(type->SetUINT64(MF_MT_FRAME_SIZE, UINT64{Width} << 32 | Height), S_OK);
        EXPECT_EQ(type->SetUINT64(MF_MT_FRAME_RATE, UINT64{30} << 32 | 1), S_OK);
        EXPECT_EQ(type->SetUINT64(MF_MT_PIXEL_ASPECT_RATIO, UINT64{1} << 32 | 1), S_OK);
        return type;
    }
    HRESULT Create(ComPtr<IMFSinkWriter>& created) const {
        return MFCreateSinkWriterFromURL(path.c_str(), nullptr, nullptr, created.Put());
    }
    HRESULT Prepare() {
        RETURN_IF_FAILED(Create(writer));
        RETURN_IF_FAILED(writer->AddStream(Type(MFVideoFormat_H264).Get(), &stream));
        return writer->SetInputMediaType(stream, Type(MFVideoFormat_NV12).Get(), nullptr);
    }
    void Begin() {
        ASSERT_EQ(Prepare(), S_OK);
        ASSERT_EQ(writer->BeginWriting(), S_OK);
    }
    HRESULT Write(LONGLONG time100ns) {
        ComPtr<IMFMediaBuffer> buffer;
        RETURN_IF_FAILED(MFCreateMemoryBuffer(FrameBytes, buffer.Put()));
        BYTE* bytes = nullptr;
        RETURN_IF_FAILED(buffer->Lock(&bytes, nullptr, nullptr));
        std::memset(bytes, 128, FrameBytes);
        RETURN_IF_FAILED(buffer->Unlock());
        RETURN_IF_FAILED(buffer->SetCurrentLength(FrameBytes));
        ComPtr<IMFSample> sample;
        RETURN_IF_FAILED(MFCreateSample(sample.Put()));
        RETURN_IF_FAILED(sample->AddBuffer(buffer.Get()));
        RETURN_IF_FAILED(sample->SetSampleTime(time100ns));
        RETURN_IF_FAILED(sample->SetSampleDuration(FrameDuration100ns));
        return writer->WriteSample(stream, sample.Get());
    }
    [[nodiscard]] bool HoldsVideo() const {
        const std::string bytes = ReadBytes(path);
        return bytes.size() > 8 && bytes.substr(4, 4) == "ftyp" && bytes.find("moov") != std::string::npos;
    }

    const Apartment apartment;
    const MediaFoundationStart start{SUCCEEDED(MFStartup(MF_VERSION, MFSTARTUP_FULL))};
    const PrivateFolder folder;
    const std::filesystem::path path = folder.Path() / L"video.mp4";
    ComPtr<IMFSinkWriter> writer;
    DWORD stream = 99;
};

TEST_F(SinkWriterContract, WritesNv12FramesAtIrregularTimesAsH264) {
    Source("Tutorial: Using the Sink Writer to Encode Video");
    Begin();
    for (const LONGLONG time : {1'230'000, 1'230'001, 1'700'000, 9'000'000}) {
        EXPECT_EQ(Write(time), S_OK) << time;
    }
    EXPECT_EQ(writer->Finalize(), S_OK);
    writer.Reset();
    EXPECT_TRUE(HoldsVideo());
}

TEST_F(SinkWriterContract, RefusesAnInputThatNoEncoderTakes) {
    Source("IMFSinkWriter::SetInputMediaType (mfreadwrite.h)");
    ASSERT_EQ(Create(writer), S_OK);
    ASSERT_EQ(writer->AddStream(Type(MFVideoFormat_H264).Get(), &stream), S_OK);
    EXPECT_EQ(writer->SetInputMediaType(stream, Type(MFVideoFormat_Base).Get(), nullptr), MF_E_INVALIDMEDIATYPE);
}

TEST_F(SinkWriterContract, RefusesSamplesBeforeTheBeginning) {
    Source("IMFSinkWriter::WriteSample (mfreadwrite.h)");
    ASSERT_EQ(Prepare(), S_OK);
    EXPECT_EQ(Write(0), MF_E_INVALIDREQUEST);
}

TEST_F(SinkWriterContract, FailsToFinishAFileWithoutASample) {
    Source("IMFSinkWriter::Finalize (mfreadwrite.h)");
    Begin();
    EXPECT_EQ(writer->Finalize(), MF_E_SINK_NO_SAMPLES_PROCESSED);
}

TEST_F(SinkWriterContract, FinishesAfterAnMfShutdownThatIsNotTheLast) {
    Source("MFStartup function (mfapi.h)");
    ASSERT_EQ(MFStartup(MF_VERSION, MFSTARTUP_FULL), S_OK);
    Begin();
    ASSERT_EQ(Write(0), S_OK);
    EXPECT_EQ(MFShutdown(), S_OK);
    EXPECT_EQ(Write(FrameDuration100ns), S_OK);
    EXPECT_EQ(writer->Finalize(), S_OK);
    writer.Reset();
    EXPECT_TRUE(HoldsVideo());
}

TEST_F(SinkWriterContract, IsOfNoUseAfterTheLastMfShutdown) {
    Source("MFShutdown function (mfapi.h)");
    Begin();
    ASSERT_EQ(Write(0), S_OK);
    EXPECT_EQ(MFShutdown(), S_OK);
    EXPECT_EQ(Write(FrameDuration100ns), MF_E_SHUTDOWN);
    EXPECT_EQ(writer->Finalize(), MF_E_SHUTDOWN);
    writer.Reset();
    EXPECT_EQ(MFStartup(MF_VERSION, MFSTARTUP_FULL), S_OK); // for `start`
}

TEST_F(SinkWriterContract, ASecondWriterDoesNotGetTheSameFile) {
    Source("MFCreateSinkWriterFromURL function (mfreadwrite.h)");
    Begin();
    ComPtr<IMFSinkWriter> second;
    EXPECT_TRUE(FAILED(Create(second)));
    EXPECT_EQ(Write(0), S_OK);
    EXPECT_EQ(writer->Finalize(), S_OK);
}

} // namespace
} // namespace receiver
