// The JPEG encoder and the video writer of the small machine. They write no files and look closely at what they get.

#include "fuzz/support/require.h"
#include "fuzz/windows/fake_windows.h"

#include <mfidl.h>
#include <wincodec.h>

#include <numeric>

namespace receiver {
namespace {

// Reads what it is given, to the last byte.
void ReadAll(std::span<const std::uint8_t> bytes) {
    FakeWindows::Current().mediaSum = std::accumulate(bytes.begin(), bytes.end(), FakeWindows::Current().mediaSum);
}

// Snapshots

class PropertyBag final : public FakeObject<IPropertyBag2> {};

class Stream final : public FakeObject<IWICStream> {
public:
    HRESULT InitializeFromFilename(LPCWSTR, DWORD) override { return Answer(); }
};

class FrameEncode final : public FakeObject<IWICBitmapFrameEncode> {
public:
    HRESULT Initialize(IPropertyBag2*) override { return Answer(); }
    HRESULT SetSize(UINT width, UINT height) override {
        width_ = width;
        height_ = height;
        return Answer();
    }
    HRESULT SetPixelFormat(WICPixelFormatGUID* format) override {
        if (FakeWindows::Current().Fails()) {
            *format = GUID_ContainerFormatJpeg; // Some other one: allowed, with success.
        }
        return S_OK;
    }
    HRESULT WritePixels(UINT lineCount, UINT stride, UINT size, BYTE* pixels) override {
        Require(lineCount == height_ && stride == width_ * 3 && size == stride * height_, "a snapshot is complete");
        ReadAll({pixels, size});
        return Answer();
    }
    HRESULT Commit() override { return Answer(); }

private:
    UINT width_ = 0;
    UINT height_ = 0;
};

class Encoder final : public FakeObject<IWICBitmapEncoder> {
public:
    HRESULT Initialize(IWICStream*, WICBitmapEncoderCacheOption) override { return Answer(); }
    HRESULT CreateNewFrame(IWICBitmapFrameEncode** frame, IPropertyBag2** options) override {
        *options = nullptr;
        RETURN_IF_FAILED(HandOut<FrameEncode>(frame));
        *options = new PropertyBag;
        return S_OK;
    }
    HRESULT Commit() override { return Answer(); }
};

class ImagingFactory final : public FakeObject<IWICImagingFactory> {
public:
    HRESULT CreateStream(IWICStream** stream) override { return HandOut<Stream>(stream); }
    HRESULT CreateEncoder(REFGUID, const GUID*, IWICBitmapEncoder** encoder) override {
        return HandOut<Encoder>(encoder);
    }
};

// Recordings

class MediaType final : public FakeObject<IMFMediaType> {
public:
    HRESULT SetGUID(REFGUID, REFGUID) override { return S_OK; }
    HRESULT SetUINT32(REFGUID, std::uint32_t) override { return S_OK; }
    HRESULT SetUINT64(REFGUID key, std::uint64_t value) override {
        if (key == MF_MT_FRAME_SIZE) {
            frameBytes = static_cast<std::size_t>((value >> 32) * (value & 0xFFFFFFFF) * 3 / 2);
        }
        return S_OK;
    }

    std::size_t frameBytes = 0; // of NV12
};

class MediaBuffer final : public FakeObject<IMFMediaBuffer> {
public:
    explicit MediaBuffer(std::size_t size) : bytes(size) {}
    HRESULT Lock(BYTE** data, DWORD*, DWORD*) override {
        *data = bytes.data();
        return Answer();
    }
    HRESULT Unlock() override { return S_OK; }
    HRESULT SetCurrentLength(DWORD length) override {
        Require(length == bytes.size(), "a buffer is filled");
        return S_OK;
    }

    std::vector<std::uint8_t> bytes;
};

class Sample final : public FakeObject<IMFSample> {
public:
    HRESULT AddBuffer(IMFMediaBuffer* added) override {
        RETURN_IF_FAILED(Answer());
        buffer = ComPtr(static_cast<MediaBuffer*>(added));
        return S_OK;
    }
    HRESULT SetSampleTime(LONGLONG value) override {
        time = value;
        return S_OK;
    }
    HRESULT SetSampleDuration(LONGLONG) override { return S_OK; }

    ComPtr<MediaBuffer> buffer;
    LONGLONG time = -1;
};

class SinkWriter final : public FakeObject<IMFSinkWriter> {
public:
    HRESULT AddStream(IMFMediaType*, DWORD* index) override {
        *index = 7;
        return Answer();
    }
    HRESULT SetInputMediaType(DWORD index, IMFMediaType* type, IMFAttributes*) override {
        Require(index == 7, "the stream is the one that was added");
        frameBytes_ = static_cast<MediaType*>(type)->frameBytes;
        return Answer();
    }
    HRESULT BeginWriting() override {
        RETURN_IF_FAILED(Answer());
        writing_ = true;
        return S_OK;
    }
    HRESULT WriteSample(DWORD index, IMFSample* given) override {
        const Sample& sample = *static_cast<Sample*>(given);
        Require(writing_ && index == 7, "frames are written between begin and end");
        Require(sample.buffer && sample.buffer->bytes.size() == frameBytes_, "a written frame has the file's size");
        Require(sample.time > lastTime_, "time stamps rise");
        ReadAll(sample.buffer->bytes);
        RETURN_IF_FAILED(Answer());
        lastTime_ = sample.time;
        return S_OK;
    }
    HRESULT Finalize() override {
        Require(writing_, "a file is ended once");
        writing_ = false;
        return Answer();
    }

private:
    std::size_t frameBytes_ = 0;
    LONGLONG lastTime_ = -1;
    bool writing_ = false;
};

} // namespace
} // namespace receiver

HRESULT CoCreateInstance(REFCLSID, IUnknown*, DWORD, REFIID, void** object) {
    IWICImagingFactory* factory = nullptr;
    const HRESULT result = receiver::HandOut<receiver::ImagingFactory>(&factory);
    *object = factory;
    return result;
}

HRESULT MFStartup(ULONG, DWORD) noexcept {
    const HRESULT result = receiver::Answer();
    receiver::FakeWindows::Current().mediaStarts += SUCCEEDED(result) ? 1 : 0;
    return result;
}
HRESULT MFShutdown() noexcept {
    --receiver::FakeWindows::Current().mediaStarts;
    return S_OK;
}
HRESULT MFCreateMediaType(IMFMediaType** type) { return receiver::HandOut<receiver::MediaType>(type); }
HRESULT MFCreateMemoryBuffer(DWORD size, IMFMediaBuffer** buffer) {
    return receiver::HandOut<receiver::MediaBuffer>(buffer, size);
}
HRESULT MFCreateSample(IMFSample** sample) { return receiver::HandOut<receiver::Sample>(sample); }
HRESULT MFCreateSinkWriterFromURL(LPCWSTR, void*, IMFAttributes*, IMFSinkWriter** writer) {
    return receiver::HandOut<receiver::SinkWriter>(writer);
}
