// A sink writer that remembers what it is told, in the place of Media Foundation's own.
#pragma once

#include "platform/com_ptr.h"
#include "tests/support/function_patch.h"

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

// Hands out writers in the place of MFCreateSinkWriterFromURL. Only one lives at a time.
class SinkWriterFakes {
public:
    static constexpr DWORD StreamIndex = 3;

    // Lets a call fail from now on: the name of a method, or "Create".
    void Fail(const std::string& name, HRESULT code) { failures_[name] = code; }
    void FailNothing() { failures_.clear(); }
    [[nodiscard]] std::vector<std::string> TakeCalls() { return std::exchange(calls, {}); }

    std::vector<std::string> calls; // with "Create" in front and "released" at the end of a writer
    std::function<void(const std::string&)> onCall; // hears of each of them
    std::wstring url; // of the newest writer, like what follows
    ComPtr<IMFMediaType> outputType;
    ComPtr<IMFMediaType> inputType;
    std::vector<WrittenSample> samples; // those that it accepted
    ComPtr<IMFSample> newestSample; // accepted or not

private:
    class Writer;

    void Note(const std::string& name) {
        calls.push_back(name);
        if (onCall) {
            onCall(name);
        }
    }
    HRESULT Result(const std::string& name) {
        Note(name);
        const auto failure = failures_.find(name);
        return failure != failures_.end() ? failure->second : S_OK;
    }
    HRESULT Create(LPCWSTR newUrl, IMFByteStream* stream, IMFAttributes* attributes, IMFSinkWriter** writer);

    struct Creation {
        SinkWriterFakes& fakes;

        HRESULT operator()(decltype(&MFCreateSinkWriterFromURL), LPCWSTR url, IMFByteStream* stream,
                           IMFAttributes* attributes, IMFSinkWriter** writer) const {
            return fakes.Create(url, stream, attributes, writer);
        }
    };

    std::map<std::string, HRESULT> failures_;
    ImportPatch<HRESULT(LPCWSTR, IMFByteStream*, IMFAttributes*, IMFSinkWriter**), Creation> creation_{
        "mfreadwrite.dll", "MFCreateSinkWriterFromURL", &MFCreateSinkWriterFromURL, Creation{*this}};
};

} // namespace receiver
