#include "tests/rig/recorder/sink_writer.h"

#include "tests/rig/recorder/media_types.h"
#include "tests/rig/runtime/faults.h"
#include "tests/rig/runtime/text_lines.h"

#include "platform/hresult.h"

#include <mfapi.h>

#include <array>
#include <string_view>

namespace rig {
namespace {

constexpr DWORD OnlyStream = 0;
constexpr std::int64_t NoDuration = -1;
constexpr std::array<std::int64_t, 2> EndMark = {-1, 0};

// Wine's own way from a path to the file under Linux; empty elsewhere.
std::string UnixPath(LPCWSTR path) {
    const auto convert = reinterpret_cast<char*(__cdecl*)(LPCWSTR)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    char* const text = convert != nullptr ? convert(path) : nullptr;
    std::string result = text != nullptr ? text : "";
    HeapFree(GetProcessHeap(), 0, text);
    return result;
}

// Fails with MF_E_SHUTDOWN while Media Foundation is shut down: the writer of Windows needs its work queues.
HRESULT BeginCall(std::string_view name) {
    DWORD queue = 0;
    RETURN_IF_FAILED(MFAllocateSerialWorkQueue(MFASYNC_CALLBACK_QUEUE_STANDARD, &queue)); // has no threads of its own
    RETURN_IF_FAILED(MFUnlockWorkQueue(queue));
    return FaultFor(name);
}

} // namespace

HRESULT SinkWriter::Create(LPCWSTR path, IMFSinkWriter** writer) {
    receiver::UniqueFile file(
        CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return receiver::LastErrorResult();
    }
    auto created = receiver::ComPtr<SinkWriter>::Attach(new SinkWriter);
    created->file = std::move(file);
    created->unixPath = UnixPath(path);
    return created->QueryInterface(IID_IMFSinkWriter, reinterpret_cast<void**>(writer));
}

HRESULT SinkWriter::AddStream(IMFMediaType* type, DWORD* index) noexcept {
    RETURN_IF_FAILED(BeginCall(__func__));
    if (type == nullptr || index == nullptr) {
        return E_INVALIDARG;
    }
    if (state != State::Preparing) {
        return MF_E_INVALIDREQUEST;
    }
    if (outputType) {
        return E_NOTIMPL; // Windows takes several.
    }
    RETURN_IF_FAILED(CheckOutputType(type));
    outputType = receiver::ComPtr(type);
    *index = OnlyStream;
    return S_OK;
}

HRESULT SinkWriter::SetInputMediaType(DWORD index, IMFMediaType* type, IMFAttributes* parameters) noexcept {
    RETURN_IF_FAILED(BeginCall(__func__));
    if (type == nullptr) {
        return E_INVALIDARG;
    }
    if (index != OnlyStream || !outputType) {
        return MF_E_INVALIDSTREAMNUMBER;
    }
    if (parameters != nullptr) {
        return E_NOTIMPL;
    }
    if (state != State::Preparing) {
        return MF_E_INVALIDREQUEST;
    }
    RETURN_IF_FAILED(CheckInputType(type, outputType.Get()));
    inputType = receiver::ComPtr(type);
    return S_OK;
}

HRESULT SinkWriter::BeginWriting() noexcept {
    RETURN_IF_FAILED(BeginCall(__func__));
    if (state != State::Preparing || !inputType) {
        return MF_E_INVALIDREQUEST;
    }
    RETURN_IF_FAILED(encoder.Connect());
    const std::string line =
        EncodeLine({"record", unixPath, DescribeType(outputType.Get()), DescribeType(inputType.Get())});
    RETURN_IF_FAILED(encoder.Send(line.data(), line.size()));
    RETURN_IF_FAILED(encoder.ReceiveResult());
    state = State::Writing;
    return S_OK;
}

HRESULT SinkWriter::WriteSample(DWORD index, IMFSample* sample) noexcept {
    RETURN_IF_FAILED(BeginCall(__func__));
    if (sample == nullptr) {
        return E_INVALIDARG;
    }
    if (state != State::Writing) {
        return MF_E_INVALIDREQUEST;
    }
    if (index != OnlyStream) {
        return MF_E_INVALIDSTREAMNUMBER;
    }
    std::int64_t time = 0;
    RETURN_IF_FAILED(sample->GetSampleTime(&time));
    if (time <= lastTime) {
        return MF_E_INVALID_TIMESTAMP;
    }
    std::int64_t duration = NoDuration;
    if (FAILED(sample->GetSampleDuration(&duration))) {
        duration = NoDuration;
    }
    receiver::ComPtr<IMFMediaBuffer> buffer;
    RETURN_IF_FAILED(sample->ConvertToContiguousBuffer(buffer.Put()));
    RETURN_IF_FAILED(SendSample(time, duration, buffer.Get()));
    RETURN_IF_FAILED(encoder.ReceiveResult());
    lastTime = time;
    return S_OK;
}

HRESULT SinkWriter::SendSample(std::int64_t time, std::int64_t duration, IMFMediaBuffer* buffer) {
    BYTE* bytes = nullptr;
    DWORD size = 0;
    RETURN_IF_FAILED(buffer->Lock(&bytes, nullptr, &size));
    HRESULT result = size == Nv12Bytes(inputType.Get()) ? S_OK : E_INVALIDARG;
    if (SUCCEEDED(result)) {
        const std::array<std::int64_t, 2> times = {time, duration};
        result = encoder.Send(times.data(), sizeof(times));
    }
    if (SUCCEEDED(result)) {
        result = encoder.Send(bytes, size);
    }
    (void)buffer->Unlock(); // A buffer that could be locked can be unlocked.
    return result;
}

HRESULT SinkWriter::Finalize() noexcept {
    RETURN_IF_FAILED(BeginCall(__func__));
    if (state != State::Writing) {
        return MF_E_INVALIDREQUEST;
    }
    state = State::Finalized;
    if (lastTime < 0) {
        return MF_E_SINK_NO_SAMPLES_PROCESSED;
    }
    RETURN_IF_FAILED(encoder.Send(EndMark.data(), sizeof(EndMark)));
    return encoder.ReceiveResult();
}

} // namespace rig

// Exported by name in mfreadwrite.def.
STDAPI MFCreateSinkWriterFromURL(LPCWSTR url, IMFByteStream* byteStream, IMFAttributes* attributes,
                                 IMFSinkWriter** writer) {
    using namespace std::literals;
    RETURN_IF_FAILED(rig::BeginCall(__func__));
    if (url == nullptr || writer == nullptr) {
        return E_INVALIDARG;
    }
    *writer = nullptr;
    if (byteStream != nullptr || attributes != nullptr) {
        return E_NOTIMPL;
    }
    if (!std::wstring_view(url).ends_with(L".mp4"sv)) {
        return MF_E_NOT_FOUND; // No container belongs to the name.
    }
    return rig::SinkWriter::Create(url, writer);
}
