#include "capture/video_recorder.h"

#include "app/quality.h"
#include "capture/capture_path.h"
#include "platform/hresult.h"

#include <knownfolders.h>
#include <mfapi.h>

#include <cstring>
#include <new>
#include <utility>

namespace receiver {
namespace {

constexpr std::uint32_t FramesPerSecond = 30;
constexpr std::int64_t SampleDuration100ns = 333'333; // regardless of the real intervals

// The type of the encoder's input or output. The results of the single settings are ignored: AddStream and
// SetInputMediaType reject an incomplete type.
HRESULT MakeVideoType(const GUID& subtype, std::uint32_t width, std::uint32_t height, ComPtr<IMFMediaType>& type) {
    RETURN_IF_FAILED(MFCreateMediaType(type.Put()));
    (void)type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
    (void)type->SetGUID(MF_MT_SUBTYPE, subtype);
    if (subtype == MFVideoFormat_H264) {
        (void)type->SetUINT32(MF_MT_AVG_BITRATE, RecordingBitsPerSecond(width));
    }
    (void)type->SetUINT32(MF_MT_INTERLACE_MODE, MFVideoInterlace_Progressive);
    (void)type->SetUINT64(MF_MT_FRAME_SIZE, static_cast<std::uint64_t>(width) << 32 | height);
    (void)type->SetUINT64(MF_MT_FRAME_RATE, static_cast<std::uint64_t>(FramesPerSecond) << 32 | 1);
    (void)type->SetUINT64(MF_MT_PIXEL_ASPECT_RATIO, static_cast<std::uint64_t>(1) << 32 | 1);
    return S_OK;
}

HRESULT OpenWriter(const std::wstring& path, std::uint32_t width, std::uint32_t height, ComPtr<IMFSinkWriter>& writer,
                   DWORD& streamIndex) {
    RETURN_IF_FAILED(MFCreateSinkWriterFromURL(path.c_str(), nullptr, nullptr, writer.Put()));
    ComPtr<IMFMediaType> outputType;
    RETURN_IF_FAILED(MakeVideoType(MFVideoFormat_H264, width, height, outputType));
    RETURN_IF_FAILED(writer->AddStream(outputType.Get(), &streamIndex));
    ComPtr<IMFMediaType> inputType;
    RETURN_IF_FAILED(MakeVideoType(MFVideoFormat_NV12, width, height, inputType));
    RETURN_IF_FAILED(writer->SetInputMediaType(streamIndex, inputType.Get(), nullptr));
    return writer->BeginWriting();
}

// A Media Foundation buffer that holds a copy of the frame.
HRESULT MakeBuffer(const std::uint8_t* data, DWORD size, ComPtr<IMFMediaBuffer>& buffer) noexcept {
    RETURN_IF_FAILED(MFCreateMemoryBuffer(size, buffer.Put()));
    BYTE* bytes = nullptr;
    RETURN_IF_FAILED(buffer->Lock(&bytes, nullptr, nullptr));
    std::memcpy(bytes, data, size);
    // These two do not fail for a buffer in memory.
    (void)buffer->Unlock();
    (void)buffer->SetCurrentLength(size);
    return S_OK;
}

} // namespace

VideoRecorder::~VideoRecorder() {
    if (writer) {
        (void)writer->Finalize(); // There is no caller left to report to.
    }
}

HRESULT VideoRecorder::Start(std::uint32_t frameWidth, std::uint32_t frameHeight, std::wstring* outPath) noexcept try {
    if (writer) {
        return HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
    }
    RETURN_IF_FAILED(MakeCaptureFilePath(FOLDERID_Videos, L"mp4", &path));
    RETURN_IF_FAILED(MFStartup(MF_VERSION, MFSTARTUP_FULL));
    MediaFoundationStart newStart(true);
    ComPtr<IMFSinkWriter> newWriter; // Released before Media Foundation.
    RETURN_IF_FAILED(OpenWriter(path, frameWidth, frameHeight, newWriter, streamIndex));
    if (outPath != nullptr) {
        *outPath = path;
    }
    mediaFoundation = std::move(newStart);
    writer = std::move(newWriter);
    width = frameWidth;
    height = frameHeight;
    startTick = GetTickCount64();
    lastSampleTime = NoSampleYet;
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT VideoRecorder::WriteFrame(const std::uint8_t* data, std::int32_t size) noexcept {
    if (!writer) {
        return S_FALSE;
    }
    const std::uint32_t expected = width * height * 3 / 2;
    if (data == nullptr || static_cast<std::uint32_t>(size) != expected) {
        return E_INVALIDARG;
    }
    ComPtr<IMFMediaBuffer> buffer;
    RETURN_IF_FAILED(MakeBuffer(data, expected, buffer));
    ComPtr<IMFSample> sample;
    RETURN_IF_FAILED(MFCreateSample(sample.Put()));
    RETURN_IF_FAILED(sample->AddBuffer(buffer.Get()));
    const std::int64_t time = NextSampleTime(startTick, GetTickCount64(), lastSampleTime);
    // These two do not fail for a new sample.
    (void)sample->SetSampleTime(time);
    (void)sample->SetSampleDuration(SampleDuration100ns);
    const HRESULT result = writer->WriteSample(streamIndex, sample.Get());
    if (SUCCEEDED(result)) {
        lastSampleTime = time;
    }
    return result;
}

HRESULT VideoRecorder::Stop(std::wstring* outPath) noexcept {
    if (!writer) {
        return S_FALSE;
    }
    const HRESULT result = writer->Finalize();
    writer.Reset();
    mediaFoundation.Reset();
    if (outPath != nullptr) {
        *outPath = std::move(path);
    }
    path.clear();
    width = 0;
    height = 0;
    return result;
}

} // namespace receiver
