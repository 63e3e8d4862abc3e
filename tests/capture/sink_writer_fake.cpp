#include "tests/capture/sink_writer_fake.h"

#include "tests/support/report_failure.h"

namespace receiver {
namespace {

void Expect(bool condition, const wchar_t* what) {
    if (!condition) {
        ReportFailure(what);
    }
}

} // namespace

class SinkWriterFakes::Writer final : public IMFSinkWriter {
public:
    explicit Writer(SinkWriterFakes& newFakes) : fakes(newFakes) {}
    ~Writer() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references;
        if (left == 0) {
            fakes.Note("released");
            delete this;
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE AddStream(IMFMediaType* type, DWORD* index) override {
        fakes.outputType = ComPtr<IMFMediaType>(type);
        *index = StreamIndex;
        return fakes.Result("AddStream");
    }
    HRESULT STDMETHODCALLTYPE SetInputMediaType(DWORD stream, IMFMediaType* type, IMFAttributes* parameters) override {
        Expect(stream == StreamIndex && parameters == nullptr, L"the input type is that of the added stream");
        fakes.inputType = ComPtr<IMFMediaType>(type);
        return fakes.Result("SetInputMediaType");
    }
    HRESULT STDMETHODCALLTYPE BeginWriting() override {
        const HRESULT result = fakes.Result("BeginWriting");
        writing = SUCCEEDED(result);
        return result;
    }
    HRESULT STDMETHODCALLTYPE WriteSample(DWORD stream, IMFSample* sample) override {
        Expect(writing, L"samples are written after BeginWriting and before Finalize");
        fakes.newestSample = ComPtr<IMFSample>(sample);
        const HRESULT result = fakes.Result("WriteSample");
        if (SUCCEEDED(result)) {
            fakes.samples.push_back(Read(stream, sample));
        }
        return result;
    }
    HRESULT STDMETHODCALLTYPE SendStreamTick(DWORD, LONGLONG) override { return fakes.Result("SendStreamTick"); }
    HRESULT STDMETHODCALLTYPE PlaceMarker(DWORD, void*) override { return fakes.Result("PlaceMarker"); }
    HRESULT STDMETHODCALLTYPE NotifyEndOfSegment(DWORD) override { return fakes.Result("NotifyEndOfSegment"); }
    HRESULT STDMETHODCALLTYPE Flush(DWORD) override { return fakes.Result("Flush"); }
    HRESULT STDMETHODCALLTYPE Finalize() override {
        Expect(std::exchange(writing, false), L"a file that was begun is finalized once");
        return fakes.Result("Finalize");
    }
    HRESULT STDMETHODCALLTYPE GetServiceForStream(DWORD, REFGUID, REFIID, void**) override {
        return fakes.Result("GetServiceForStream");
    }
    HRESULT STDMETHODCALLTYPE GetStatistics(DWORD, MF_SINK_WRITER_STATISTICS*) override {
        return fakes.Result("GetStatistics");
    }

private:
    WrittenSample Read(DWORD stream, IMFSample* sample) {
        const AllocationPause pause;
        WrittenSample read{};
        read.stream = stream;
        DWORD buffers = 0;
        Expect(SUCCEEDED(sample->GetSampleTime(&read.time)) && SUCCEEDED(sample->GetSampleDuration(&read.duration)) &&
                   SUCCEEDED(sample->GetBufferCount(&buffers)) && buffers == 1,
               L"a sample has a time, a duration and one buffer");
        Expect(read.time > std::exchange(lastTime, read.time), L"times grow");
        ComPtr<IMFMediaBuffer> buffer;
        BYTE* bytes = nullptr;
        DWORD capacity = 0;
        DWORD length = 0;
        if (SUCCEEDED(sample->GetBufferByIndex(0, buffer.Put())) &&
            SUCCEEDED(buffer->Lock(&bytes, &capacity, &length))) {
            read.bytes.assign(bytes, bytes + length);
            (void)buffer->Unlock();
        }
        Expect(bytes != nullptr && capacity == length, L"a sample's buffer is full");
        return read;
    }

    SinkWriterFakes& fakes;
    ULONG references = 1;
    LONGLONG lastTime = -1;
    bool writing = false;
};

HRESULT SinkWriterFakes::Create(LPCWSTR newUrl, const void* stream, const IMFAttributes* attributes,
                                IMFSinkWriter** writer) {
    Expect(stream == nullptr && attributes == nullptr, L"a writer is created from its address alone");
    url = newUrl;
    samples.clear();
    const HRESULT result = Result("Create");
    if (SUCCEEDED(result)) {
        *writer = new Writer(*this);
    }
    return result;
}

} // namespace receiver
