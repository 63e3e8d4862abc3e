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
    explicit Writer(SinkWriterFakes& fakes) : fakes_(fakes) {}
    ~Writer() = default;

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
        Expect(stream == StreamIndex && parameters == nullptr, L"the input type is that of the added stream");
        fakes_.inputType = ComPtr<IMFMediaType>(type);
        return fakes_.Result("SetInputMediaType");
    }
    HRESULT STDMETHODCALLTYPE BeginWriting() override {
        const HRESULT result = fakes_.Result("BeginWriting");
        writing_ = SUCCEEDED(result);
        return result;
    }
    HRESULT STDMETHODCALLTYPE WriteSample(DWORD stream, IMFSample* sample) override {
        Expect(writing_, L"samples are written after BeginWriting and before Finalize");
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
    HRESULT STDMETHODCALLTYPE Finalize() override {
        Expect(std::exchange(writing_, false), L"a file that was begun is finalized once");
        return fakes_.Result("Finalize");
    }
    HRESULT STDMETHODCALLTYPE GetServiceForStream(DWORD, REFGUID, REFIID, void**) override {
        return fakes_.Result("GetServiceForStream");
    }
    HRESULT STDMETHODCALLTYPE GetStatistics(DWORD, MF_SINK_WRITER_STATISTICS*) override {
        return fakes_.Result("GetStatistics");
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
        Expect(read.time > std::exchange(lastTime_, read.time), L"times grow");
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

    SinkWriterFakes& fakes_;
    ULONG references_ = 1;
    LONGLONG lastTime_ = -1;
    bool writing_ = false;
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
