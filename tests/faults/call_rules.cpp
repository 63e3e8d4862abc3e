// The properties of the functions that the product calls: how each reports that it failed, what it acquires from the
// system, and why some cannot fail. Where they are called is found by the driver.
#include "tests/faults/fault_fixture.h"
#include "tests/support/function_table.h"

#include <windows.h>

#include <mferror.h>
#include <mfidl.h>
#include <mfreadwrite.h>
#include <wincodec.h>

namespace receiver {
namespace {

using Place = Resource::Place;

constexpr char NoErrorDefined[] = "It returns nothing, or nothing that reports a failure.";
constexpr char NoState[] = "It only copies a value that the system always has.";
constexpr char OwnWindow[] = "It fails only for an invalid window or index.";
constexpr char AfterWriting[] = "The bytes have been written before, by _write.";
constexpr char Runtime[] = "The C++ runtime calls it for its own purposes, also inside operator new.";

template <typename Method>
CallRule Rule(std::string_view name, Method method, std::vector<Resource> objects = {}) {
    return {.name = name, .failure = Failure::Result, .objects = std::move(objects), .slot = SlotOf(method)};
}

template <typename Method>
CallRule Recorded(std::string_view name, Method method) {
    CallRule rule = Rule(name, method);
    rule.recorded = true;
    return rule;
}

// A method whose effect the fake sink writer checks.
template <typename Method>
CallRule Checked(std::string_view name, Method method) {
    CallRule rule = Rule(name, method);
    rule.worksAnyway = true;
    return rule;
}

Resource Object(const char* interfaceName, std::size_t argument) {
    return {interfaceName, Place::PointedToByArgument, argument};
}

constexpr Resource Handle{"handle", Place::Result};
constexpr Resource ReleasedHandle{"handle", Place::Argument, 0};

} // namespace

std::span<const CallRule> CallRules() {
    static const std::vector<CallRule> rules{
        // kernel32
        {.name = "CloseHandle", .failure = Failure::Zero, .releases = ReleasedHandle},
        {.name = "CreateDirectoryW",
         .failure = Failure::Zero,
         .recorded = true,
         .knownCode = HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND)},
        {.name = "CreateEventW",
         .failure = Failure::Zero,
         .acquires = Handle,
         .recorded = true,
         .knownCode = HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE)},
        {.name = "CreateFileMappingW", .failure = Failure::Zero, .acquires = Handle},
        {.name = "CreateFileW",
         .failure = Failure::Ones,
         .acquires = Handle,
         .recorded = true,
         .knownCode = HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION)},
        {.name = "GetEnvironmentVariableW",
         .failure = Failure::Zero,
         .knownCode = HRESULT_FROM_WIN32(ERROR_ENVVAR_NOT_FOUND)},
        {.name = "GetFileAttributesW", .failure = Failure::Ones, .knownCode = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)},
        {.name = "GetLocalTime", .reason = NoErrorDefined},
        {.name = "GetModuleHandleW", .failure = Failure::Zero, .knownCode = HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)},
        {.name = "GetProcAddress",
         .failure = Failure::Zero,
         .function = "RtlGetVersion",
         .knownCode = HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)},
        {.name = "RtlGetVersion", .failure = Failure::NtStatus},
        {.name = "GetTempPathW", .failure = Failure::Zero, .recorded = true},
        {.name = "GetTickCount64", .reason = NoState},
        {.name = "LocalFree", .failure = Failure::Ones, .releases = {"memory", Place::Argument, 0}},
        {.name = "MapViewOfFile", .failure = Failure::Zero, .acquires = {"view", Place::Result}},
        {.name = "SetEndOfFile", .failure = Failure::Zero},
        {.name = "SetFilePointerEx", .failure = Failure::Zero},
        {.name = "UnmapViewOfFile", .failure = Failure::Zero, .releases = {"view", Place::Argument, 0}},
        {.name = "WaitForSingleObject", .failure = Failure::Ones},
        // The thread's last error and its data; locks; the throwing of exceptions.
        {.name = "GetLastError", .failure = Failure::Unseen, .reason = NoState},
        {.name = "SetLastError", .failure = Failure::Unseen, .reason = NoErrorDefined},
        {.name = "TlsGetValue", .failure = Failure::Unseen, .reason = Runtime},
        {.name = "EnterCriticalSection", .failure = Failure::Unseen, .reason = Runtime},
        {.name = "LeaveCriticalSection", .failure = Failure::Unseen, .reason = Runtime},
        {.name = "RaiseException", .failure = Failure::Unseen, .reason = Runtime},
        {.name = "RtlCaptureContext", .failure = Failure::Unseen, .reason = Runtime},
        {.name = "RtlLookupFunctionEntry", .failure = Failure::Unseen, .reason = Runtime},
        {.name = "RtlUnwindEx", .failure = Failure::Unseen, .reason = Runtime},
        {.name = "RtlVirtualUnwind", .failure = Failure::Unseen, .reason = Runtime},
        // the C runtime, through the streams of C++
        {.name = "_wfopen", .failure = Failure::Zero, .acquires = {"stream", Place::Result}, .knownCode = S_OK},
        {.name = "_read", .failure = Failure::Ones, .knownCode = S_OK},
        {.name = "_write", .failure = Failure::Ones, .knownCode = S_OK},
        {.name = "fclose", .reason = AfterWriting, .releases = {"stream", Place::Argument, 0}},
        // advapi32, shell32
        {.name = "ConvertStringSecurityDescriptorToSecurityDescriptorW",
         .failure = Failure::Zero,
         .acquires = {"memory", Place::PointedToByArgument, 2}},
        {.name = "RegCloseKey", .failure = Failure::Status, .releases = {"key", Place::Argument, 0}},
        {.name = "RegOpenKeyExW",
         .failure = Failure::Status,
         .acquires = {"key", Place::PointedToByArgument, 4},
         .knownCode = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)},
        {.name = "SHGetKnownFolderPath",
         .failure = Failure::Result,
         .acquires = {"text", Place::PointedToByArgument, 3},
         .knownCode = HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND)},
        // user32. A window and its class exist until the program ends, and a timer as long as its window.
        {.name = "AdjustWindowRectExForDpi", .failure = Failure::Zero},
        {.name = "CreateWindowExW", .failure = Failure::Zero, .recorded = true},
        {.name = "DefWindowProcW", .reason = NoErrorDefined},
        {.name = "DispatchMessageW", .reason = NoErrorDefined},
        {.name = "GetClientRect", .failure = Failure::Zero},
        {.name = "GetDpiForWindow", .reason = OwnWindow},
        {.name = "GetMessageW", .failure = Failure::Ones},
        {.name = "GetMonitorInfoW", .failure = Failure::Zero},
        {.name = "GetWindowLongPtrW", .reason = OwnWindow},
        {.name = "GetWindowRect", .failure = Failure::Zero},
        {.name = "IsIconic", .reason = NoErrorDefined},
        {.name = "IsZoomed", .reason = NoErrorDefined},
        {.name = "KillTimer", .failure = Failure::Zero, .recorded = true},
        {.name = "LoadCursorW", .failure = Failure::Zero},
        {.name = "LoadIconW", .failure = Failure::Zero},
        {.name = "MessageBoxW", .failure = Failure::Zero},
        {.name = "MonitorFromWindow", .reason = NoErrorDefined},
        {.name = "PostQuitMessage", .reason = NoErrorDefined},
        {.name = "RegisterClassExW", .failure = Failure::Zero},
        {.name = "SetTimer", .failure = Failure::Zero, .recorded = true},
        {.name = "SetWindowLongPtrW", .reason = OwnWindow},
        {.name = "SetWindowPos", .failure = Failure::Zero, .recorded = true},
        {.name = "ShowWindow", .reason = NoErrorDefined, .recorded = true},
        {.name = "TranslateMessage", .reason = NoErrorDefined},
        {.name = "UpdateWindow", .failure = Failure::Zero, .recorded = true},
        // ole32, Media Foundation
        {.name = "CoCreateInstance",
         .failure = Failure::Result,
         .objects = {Object("IWICImagingFactory", 4)},
         .knownCode = REGDB_E_CLASSNOTREG},
        {.name = "CoInitializeEx",
         .failure = Failure::Result,
         .acquires = {"apartment"},
         .recorded = true,
         .knownCode = RPC_E_CHANGED_MODE},
        {.name = "CoTaskMemFree", .reason = NoErrorDefined, .releases = {"text", Place::Argument, 0}},
        {.name = "CoUninitialize", .reason = NoErrorDefined, .releases = {"apartment"}, .recorded = true},
        {.name = "MFCreateMediaType", .failure = Failure::Result, .objects = {Object("IMFMediaType", 0)}},
        {.name = "MFCreateMemoryBuffer", .failure = Failure::Result, .objects = {Object("IMFMediaBuffer", 1)}},
        {.name = "MFCreateSample", .failure = Failure::Result, .objects = {Object("IMFSample", 0)}},
        {.name = "MFCreateSinkWriterFromURL",
         .failure = Failure::Result,
         .objects = {Object("IMFSinkWriter", 3)},
         .recorded = true,
         .knownCode = MF_E_UNSUPPORTED_BYTESTREAM_TYPE},
        {.name = "MFShutdown", .failure = Failure::Result, .releases = {"Media Foundation"}, .recorded = true},
        {.name = "MFStartup",
         .failure = Failure::Result,
         .acquires = {"Media Foundation"},
         .recorded = true,
         .knownCode = MF_E_BAD_STARTUP_VERSION},
        // Media Foundation's objects
        {.name = "IMFMediaBuffer::Lock",
         .failure = Failure::Result,
         .acquires = {"lock"},
         .slot = SlotOf(&IMFMediaBuffer::Lock)},
        {.name = "IMFMediaBuffer::Unlock",
         .failure = Failure::Result,
         .releases = {"lock"},
         .slot = SlotOf(&IMFMediaBuffer::Unlock)},
        Checked("IMFMediaBuffer::SetCurrentLength", &IMFMediaBuffer::SetCurrentLength),
        Rule("IMFMediaType::SetGUID", &IMFMediaType::SetGUID),
        Rule("IMFMediaType::SetUINT32", &IMFMediaType::SetUINT32),
        Rule("IMFMediaType::SetUINT64", &IMFMediaType::SetUINT64),
        Rule("IMFSample::AddBuffer", &IMFSample::AddBuffer),
        Checked("IMFSample::SetSampleDuration", &IMFSample::SetSampleDuration),
        Checked("IMFSample::SetSampleTime", &IMFSample::SetSampleTime),
        Rule("IMFSinkWriter::AddStream", &IMFSinkWriter::AddStream),
        Rule("IMFSinkWriter::BeginWriting", &IMFSinkWriter::BeginWriting),
        Recorded("IMFSinkWriter::Finalize", &IMFSinkWriter::Finalize),
        Rule("IMFSinkWriter::SetInputMediaType", &IMFSinkWriter::SetInputMediaType),
        Recorded("IMFSinkWriter::WriteSample", &IMFSinkWriter::WriteSample),
        // the imaging component's
        Recorded("IWICBitmapEncoder::Commit", &IWICBitmapEncoder::Commit),
        Rule("IWICBitmapEncoder::CreateNewFrame", &IWICBitmapEncoder::CreateNewFrame,
             {Object("IWICBitmapFrameEncode", 1), Object("IPropertyBag2", 2)}),
        Rule("IWICBitmapEncoder::Initialize", &IWICBitmapEncoder::Initialize),
        Rule("IWICBitmapFrameEncode::Commit", &IWICBitmapFrameEncode::Commit),
        Rule("IWICBitmapFrameEncode::Initialize", &IWICBitmapFrameEncode::Initialize),
        Rule("IWICBitmapFrameEncode::SetPixelFormat", &IWICBitmapFrameEncode::SetPixelFormat),
        Rule("IWICBitmapFrameEncode::SetSize", &IWICBitmapFrameEncode::SetSize),
        Rule("IWICBitmapFrameEncode::WritePixels", &IWICBitmapFrameEncode::WritePixels),
        Rule("IWICImagingFactory::CreateEncoder", &IWICImagingFactory::CreateEncoder, {Object("IWICBitmapEncoder", 3)}),
        Rule("IWICImagingFactory::CreateStream", &IWICImagingFactory::CreateStream, {Object("IWICStream", 1)}),
        Rule("IWICStream::InitializeFromFilename", &IWICStream::InitializeFromFilename),
    };
    return rules;
}

} // namespace receiver
