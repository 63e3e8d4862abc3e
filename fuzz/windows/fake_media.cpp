// Fakes of the imaging component's JPEG encoder and of Media Foundation's media types, buffers and samples. They write
// no files and check what they receive. The sink writer's fake is in tests/capture/.

#include "fuzz/support/require.h"
#include "fuzz/windows/fake_windows.h"

#include <mfidl.h>
#include <wincodec.h>

#include <memory>
#include <numeric>

namespace receiver {
namespace {

// Base of all objects here: counts references, answers every query with itself.
template <typename Interface>
class CountedObject : public Interface {
public:
    CountedObject() { ++FakeWindows::Current().objectCount; }
    CountedObject(const CountedObject&) = delete;
    CountedObject& operator=(const CountedObject&) = delete;
    virtual ~CountedObject() { --FakeWindows::Current().objectCount; }

    HRESULT QueryInterface(REFIID, void** object) override {
        *object = static_cast<Interface*>(this);
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return ++references; }
    ULONG Release() override {
        const ULONG left = --references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

private:
    ULONG references = 1; // The creator's.
};

// Makes an object for a call that hands one out, unless the call is to fail.
template <typename Object, typename Interface, typename... Arguments>
HRESULT HandOut(Interface** result, Arguments&&... arguments) {
    *result = nullptr;
    RETURN_IF_FAILED(Answer());
    *result = new Object(std::forward<Arguments>(arguments)...);
    return S_OK;
}

// Snapshots

class PropertyBag final : public CountedObject<IPropertyBag2> {};

class Stream final : public CountedObject<IWICStream> {
public:
    HRESULT InitializeFromFilename(LPCWSTR, DWORD) override { return Answer(); }
};

class FrameEncode final : public CountedObject<IWICBitmapFrameEncode> {
public:
    HRESULT Initialize(IPropertyBag2*) override { return Answer(); }
    HRESULT SetSize(UINT newWidth, UINT newHeight) override {
        width = newWidth;
        height = newHeight;
        return Answer();
    }
    HRESULT SetPixelFormat(WICPixelFormatGUID* format) override {
        if (FakeWindows::Current().Fails()) {
            *format = GUID_ContainerFormatJpeg; // The encoder may choose another format and succeed.
        }
        return S_OK;
    }
    HRESULT WritePixels(UINT lineCount, UINT stride, UINT size, BYTE* pixels) override {
        Require(lineCount == height && stride == width * 3 && size == stride * height, "a snapshot is complete");
        FakeWindows::Current().pixelSum += std::accumulate(pixels, pixels + size, 0U);
        return Answer();
    }
    HRESULT Commit() override { return Answer(); }

private:
    UINT width = 0;
    UINT height = 0;
};

class Encoder final : public CountedObject<IWICBitmapEncoder> {
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

class ImagingFactory final : public CountedObject<IWICImagingFactory> {
public:
    HRESULT CreateStream(IWICStream** stream) override { return HandOut<Stream>(stream); }
    HRESULT CreateEncoder(REFGUID, const GUID*, IWICBitmapEncoder** encoder) override {
        return HandOut<Encoder>(encoder);
    }
};

// Recordings

class MediaType final : public CountedObject<IMFMediaType> {
public:
    HRESULT SetGUID(REFGUID, REFGUID) override { return S_OK; }
    HRESULT SetUINT32(REFGUID, std::uint32_t) override { return S_OK; }
    HRESULT SetUINT64(REFGUID, std::uint64_t) override { return S_OK; }
};

class MediaBuffer final : public CountedObject<IMFMediaBuffer> {
public:
    explicit MediaBuffer(DWORD newSize)
        : size(newSize), bytes(std::make_unique_for_overwrite<std::uint8_t[]>(newSize)) {}
    HRESULT Lock(BYTE** data, DWORD* capacity, DWORD* newLength) override {
        if (capacity != nullptr && newLength != nullptr) { // the sink writer
            *capacity = size;
            *newLength = length;
        } else {
            RETURN_IF_FAILED(Answer());
        }
        *data = bytes.get();
        return S_OK;
    }
    HRESULT Unlock() override { return S_OK; }
    HRESULT SetCurrentLength(DWORD newLength) override {
        length = newLength;
        return S_OK;
    }

private:
    DWORD size;
    std::unique_ptr<std::uint8_t[]> bytes;
    DWORD length = 0;
};

class Sample final : public CountedObject<IMFSample> {
public:
    HRESULT AddBuffer(IMFMediaBuffer* added) override {
        RETURN_IF_FAILED(Answer());
        buffer = ComPtr(added);
        return S_OK;
    }
    HRESULT SetSampleTime(LONGLONG newTime) override {
        time = newTime;
        return S_OK;
    }
    HRESULT SetSampleDuration(LONGLONG newDuration) override {
        duration = newDuration;
        return S_OK;
    }
    HRESULT GetSampleTime(LONGLONG* value) override {
        *value = time;
        return S_OK;
    }
    HRESULT GetSampleDuration(LONGLONG* value) override {
        *value = duration;
        return S_OK;
    }
    HRESULT GetBufferCount(DWORD* count) override {
        *count = buffer ? 1 : 0;
        return S_OK;
    }
    HRESULT GetBufferByIndex(DWORD, IMFMediaBuffer** value) override {
        *value = buffer.Get();
        (*value)->AddRef();
        return S_OK;
    }

private:
    ComPtr<IMFMediaBuffer> buffer;
    LONGLONG time = -1;
    LONGLONG duration = 0;
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
HRESULT MFAllocateSerialWorkQueue(DWORD, DWORD*) noexcept {
    return receiver::FakeWindows::Current().mediaStarts > 0 ? S_OK : MF_E_SHUTDOWN;
}
HRESULT MFUnlockWorkQueue(DWORD) noexcept { return S_OK; }
HRESULT MFCreateMediaType(IMFMediaType** type) { return receiver::HandOut<receiver::MediaType>(type); }
HRESULT MFCreateMemoryBuffer(DWORD size, IMFMediaBuffer** buffer) {
    return receiver::HandOut<receiver::MediaBuffer>(buffer, size);
}
HRESULT MFCreateSample(IMFSample** sample) { return receiver::HandOut<receiver::Sample>(sample); }
HRESULT MFCreateSinkWriterFromURL(LPCWSTR path, void* stream, IMFAttributes* attributes, IMFSinkWriter** writer) {
    return receiver::FakeWindows::Current().writers.Create(path, stream, attributes, writer);
}
