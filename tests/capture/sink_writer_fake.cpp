#include "tests/capture/sink_writer_fake.h"

#include "tests/support/test_files.h"

#include <gtest/gtest.h>

namespace receiver {

class SinkWriterFakes::Writer final : public IMFSinkWriter {
public:
    explicit Writer(SinkWriterFakes& fakes) : fakes_(fakes) {}
    virtual ~Writer() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) {
            fakes_.Note("released");
            delete this;
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE AddStream(IMFMediaType* type, DWORD* index) override {
        fakes_.outputType = ComPtr<IMFMediaType>(type);
        *index = StreamIndex;
        return fakes_.Result("AddStream");
    }
    HRESULT STDMETHODCALLTYPE SetInputMediaType(DWORD stream, IMFMediaType* type, IMFAttributes* parameters) override {
        EXPECT_EQ(stream, StreamIndex);
        EXPECT_EQ(parameters, nullptr);
        fakes_.inputType = ComPtr<IMFMediaType>(type);
        return fakes_.Result("SetInputMediaType");
    }
    HRESULT STDMETHODCALLTYPE BeginWriting() override { return fakes_.Result("BeginWriting"); }
    HRESULT STDMETHODCALLTYPE WriteSample(DWORD stream, IMFSample* sample) override {
        fakes_.newestSample = ComPtr<IMFSample>(sample);
        const HRESULT result = fakes_.Result("WriteSample");
        if (SUCCEEDED(result)) {
            fakes_.samples.push_back(Read(stream, sample));
        }
        return result;
    }
    HRESULT STDMETHODCALLTYPE SendStreamTick(DWORD, LONGLONG) override { return fakes_.Result("SendStreamTick"); }
    HRESULT STDMETHODCALLTYPE PlaceMarker(DWORD, void*) override { return fakes_.Result("PlaceMarker"); }
    HRESULT STDMETHODCALLTYPE NotifyEndOfSegment(DWORD) override { return fakes_.Result("NotifyEndOfSegment"); }
    HRESULT STDMETHODCALLTYPE Flush(DWORD) override { return fakes_.Result("Flush"); }
    HRESULT STDMETHODCALLTYPE Finalize() override { return fakes_.Result("Finalize"); }
    HRESULT STDMETHODCALLTYPE GetServiceForStream(DWORD, REFGUID, REFIID, void**) override {
        return fakes_.Result("GetServiceForStream");
    }
    HRESULT STDMETHODCALLTYPE GetStatistics(DWORD, MF_SINK_WRITER_STATISTICS*) override {
        return fakes_.Result("GetStatistics");
    }

private:
    static WrittenSample Read(DWORD stream, IMFSample* sample) {
        WrittenSample read{};
        read.stream = stream;
        EXPECT_EQ(sample->GetSampleTime(&read.time), S_OK);
        EXPECT_EQ(sample->GetSampleDuration(&read.duration), S_OK);
        DWORD buffers = 0;
        EXPECT_EQ(sample->GetBufferCount(&buffers), S_OK);
        EXPECT_EQ(buffers, 1U);
        ComPtr<IMFMediaBuffer> buffer;
        EXPECT_EQ(sample->GetBufferByIndex(0, buffer.Put()), S_OK);
        BYTE* bytes = nullptr;
        DWORD capacity = 0;
        DWORD length = 0;
        EXPECT_EQ(buffer->Lock(&bytes, &capacity, &length), S_OK);
        EXPECT_EQ(capacity, length);
        read.bytes.assign(bytes, bytes + length);
        EXPECT_EQ(buffer->Unlock(), S_OK);
        return read;
    }

    SinkWriterFakes& fakes_;
    ULONG references_ = 1;
};

HRESULT SinkWriterFakes::Create(LPCWSTR newUrl, IMFByteStream* stream, IMFAttributes* attributes,
                                IMFSinkWriter** writer) {
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(attributes, nullptr);
    url = newUrl;
    samples.clear();
    const HRESULT result = Result("Create");
    if (SUCCEEDED(result)) {
        WriteBytes(url, ""); // Windows, too, makes the file at once.
        *writer = new Writer(*this);
    }
    return result;
}

} // namespace receiver
