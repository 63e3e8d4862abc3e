// A fake of Media Foundation's sink writer that records its calls and samples. It also builds natively, for the fuzz
// targets, over fuzz/windows/windows.h.
#pragma once

#include "platform/com_ptr.h"
#include "tests/support/allocation_fault.h"
#ifdef _WIN32
#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"
#endif

#include <windows.h>

#include <mfapi.h>
#include <mfidl.h>
#include <mfreadwrite.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace receiver {

struct WrittenSample {
    DWORD stream;
    LONGLONG time; // 100 ns units, like the duration
    LONGLONG duration;
    std::vector<std::uint8_t> bytes;
};

// Creates the fake writers. Only one of them exists at a time.
class SinkWriterFakes {
public:
    static constexpr DWORD StreamIndex = 3;

    // Lets a call fail from now on: the name of a method, or "Create".
    void Fail(const std::string& name, HRESULT code) { failures[name] = code; }
    void FailNothing() { failures.clear(); }
    [[nodiscard]] std::vector<std::string> TakeCalls() { return std::exchange(calls, {}); }
    // Used in place of MFCreateSinkWriterFromURL. While Media Foundation is shut down, this and the writer's methods
    // return MF_E_SHUTDOWN and are recorded as "NAME after MFShutdown".
    HRESULT Create(LPCWSTR newUrl, const void* stream, const IMFAttributes* attributes, IMFSinkWriter** writer);

    std::vector<std::string> calls; // "Create", the names of methods, and "released" when a writer is destroyed
    std::function<void(const std::string&)> onCall; // called with each of them
    std::function<HRESULT()> onResult; // if set, gives the result of every call for which `Fail` was not called
    std::wstring url; // of the newest writer, like the members below
    ComPtr<IMFMediaType> outputType;
    ComPtr<IMFMediaType> inputType;
    std::vector<WrittenSample> samples; // those that it accepted
    ComPtr<IMFSample> newestSample; // accepted or not

private:
    class Writer;

    // MF_E_SHUTDOWN while Media Foundation is shut down.
    static HRESULT PlatformResult() {
        const AllocationPause pause;
        DWORD queue = 0;
        const HRESULT result = MFAllocateSerialWorkQueue(MFASYNC_CALLBACK_QUEUE_STANDARD, &queue);
        return SUCCEEDED(result) ? MFUnlockWorkQueue(queue) : result;
    }
    void Note(const std::string& name) {
        const AllocationPause pause;
        calls.push_back(SUCCEEDED(PlatformResult()) ? name : name + " after MFShutdown");
        if (onCall) {
            onCall(calls.back());
        }
    }
    HRESULT Result(const std::string& name) {
        Note(name);
        if (const HRESULT platform = PlatformResult(); FAILED(platform)) {
            return platform;
        }
        const auto failure = failures.find(name);
        if (failure != failures.end()) {
            return failure->second;
        }
        return onResult ? onResult() : S_OK;
    }

    std::map<std::string, HRESULT> failures;

#ifdef _WIN32
    struct Creation {
        SinkWriterFakes& fakes;

        HRESULT operator()(decltype(&MFCreateSinkWriterFromURL), LPCWSTR address, IMFByteStream* stream,
                           IMFAttributes* attributes, IMFSinkWriter** writer) const {
            const HRESULT result = fakes.Create(address, stream, attributes, writer);
            if (SUCCEEDED(result)) {
                WriteBytes(address, ""); // Windows creates the file at once.
            }
            return result;
        }
    };

    ImportPatch<HRESULT(LPCWSTR, IMFByteStream*, IMFAttributes*, IMFSinkWriter**), Creation> creation{
        "mfreadwrite.dll", "MFCreateSinkWriterFromURL", &MFCreateSinkWriterFromURL, Creation{*this}};
#endif
};

} // namespace receiver
