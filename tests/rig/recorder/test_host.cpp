// A host without the receiver's behavior, to test the sink writer itself. Loads the DLL named by its argument and
// executes the lines of its standard input: the name of a call and its arguments. Each is answered by the name and the
// HRESULT.
//   create PATH
//   add-stream TYPE                     a type is a list such as "majorType=vids frameSize=320:240 averageBitRate=9"
//   set-input INDEX TYPE
//   begin
//   write TIME DURATION BYTES LUMA      one gray frame; TIME and DURATION may be "none"
//   finalize, stream-tick, release
//   open-for-writing PATH               whether another process could write to the file
//   shutdown, startup                   of Media Foundation, which is up at first
#include "platform/com_ptr.h"
#include "platform/handles.h"
#include "platform/hresult.h"

#include <mfapi.h>
#include <mfidl.h>
#include <mfreadwrite.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

namespace {

using receiver::ComPtr;

const std::map<std::string, const GUID&> Attributes = {
    {"majorType", MF_MT_MAJOR_TYPE},
    {"subtype", MF_MT_SUBTYPE},
    {"averageBitRate", MF_MT_AVG_BITRATE},
    {"interlaceMode", MF_MT_INTERLACE_MODE},
    {"frameSize", MF_MT_FRAME_SIZE},
    {"frameRate", MF_MT_FRAME_RATE},
    {"pixelAspectRatio", MF_MT_PIXEL_ASPECT_RATIO},
    {"{644B4E48-1E02-4516-B0EB-C01CA9D49AC6}", MF_MT_DEFAULT_STRIDE},
};

std::wstring Wide(const std::string& text) {
    std::wstring result(text.size(), L'\0');
    result.resize(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                                               result.data(), static_cast<int>(result.size()))));
    return result;
}

// 1234 is a UINT32, 12:34 a UINT64 of two halves, four other characters the type that they stand for.
HRESULT SetAttribute(IMFMediaType* type, const GUID& key, const std::string& value) {
    const std::size_t colon = value.find(':');
    if (colon != std::string::npos) {
        const UINT64 high = std::strtoul(value.c_str(), nullptr, 10);
        return type->SetUINT64(key, high << 32 | std::strtoul(value.c_str() + colon + 1, nullptr, 10));
    }
    if (value.find_first_not_of("0123456789") == std::string::npos) {
        return type->SetUINT32(key, std::strtoul(value.c_str(), nullptr, 10));
    }
    GUID id = MFVideoFormat_Base;
    std::memcpy(&id.Data1, value.data(), sizeof(id.Data1));
    return type->SetGUID(key, value == "vids" ? MFMediaType_Video : id);
}

HRESULT ReadType(std::istream& words, ComPtr<IMFMediaType>& type) {
    RETURN_IF_FAILED(MFCreateMediaType(type.Put()));
    for (std::string word; words >> word;) {
        const std::size_t equals = word.find('=');
        RETURN_IF_FAILED(SetAttribute(type.Get(), Attributes.at(word.substr(0, equals)), word.substr(equals + 1)));
    }
    return S_OK;
}

HRESULT ReadSample(std::istream& words, ComPtr<IMFSample>& sample) {
    std::string time;
    std::string duration;
    DWORD size = 0;
    int luma = 0;
    words >> time >> duration >> size >> luma;
    ComPtr<IMFMediaBuffer> buffer;
    RETURN_IF_FAILED(MFCreateMemoryBuffer(size, buffer.Put()));
    BYTE* bytes = nullptr;
    RETURN_IF_FAILED(buffer->Lock(&bytes, nullptr, nullptr));
    const std::size_t lumaBytes = size / 3 * 2;
    std::memset(bytes, luma, lumaBytes);
    std::memset(bytes + lumaBytes, 128, size - lumaBytes);
    RETURN_IF_FAILED(buffer->Unlock());
    RETURN_IF_FAILED(buffer->SetCurrentLength(size));
    RETURN_IF_FAILED(MFCreateSample(sample.Put()));
    RETURN_IF_FAILED(sample->AddBuffer(buffer.Get()));
    if (time != "none") {
        RETURN_IF_FAILED(sample->SetSampleTime(std::strtoll(time.c_str(), nullptr, 10)));
    }
    return duration == "none" ? S_OK : sample->SetSampleDuration(std::strtoll(duration.c_str(), nullptr, 10));
}

class TestHost {
public:
    explicit TestHost(decltype(&MFCreateSinkWriterFromURL) newCreate) : create(newCreate) {}

    HRESULT Execute(std::istream& words) {
        std::string name;
        words >> name >> std::ws;
        if (name == "create") {
            return create(ReadPath(words).c_str(), nullptr, nullptr, writer.Put());
        }
        if (name == "open-for-writing") {
            const receiver::UniqueFile file(CreateFileW(ReadPath(words).c_str(), GENERIC_WRITE,
                                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                                        nullptr));
            return file ? S_OK : receiver::LastErrorResult();
        }
        if (name == "shutdown" || name == "startup") {
            return name == "shutdown" ? MFShutdown() : MFStartup(MF_VERSION, MFSTARTUP_FULL);
        }
        if (name == "release") {
            writer.Reset();
            return S_OK;
        }
        return writer ? Call(name, words) : E_UNEXPECTED;
    }

private:
    static std::wstring ReadPath(std::istream& words) {
        std::string path;
        std::getline(words, path);
        return Wide(path);
    }

    HRESULT Call(const std::string& name, std::istream& words) {
        if (name == "add-stream") {
            ComPtr<IMFMediaType> type;
            RETURN_IF_FAILED(ReadType(words, type));
            return writer->AddStream(type.Get(), &stream);
        }
        if (name == "set-input") {
            DWORD index = 0;
            words >> index;
            ComPtr<IMFMediaType> type;
            RETURN_IF_FAILED(ReadType(words, type));
            return writer->SetInputMediaType(index, type.Get(), nullptr);
        }
        if (name == "begin") {
            return writer->BeginWriting();
        }
        if (name == "write") {
            ComPtr<IMFSample> sample;
            RETURN_IF_FAILED(ReadSample(words, sample));
            return writer->WriteSample(stream, sample.Get());
        }
        if (name == "finalize") {
            return writer->Finalize();
        }
        return name == "stream-tick" ? writer->SendStreamTick(stream, 0) : E_INVALIDARG;
    }

    decltype(&MFCreateSinkWriterFromURL) create;
    ComPtr<IMFSinkWriter> writer;
    DWORD stream = 0;
};

} // namespace

int wmain(int argumentCount, wchar_t** arguments) {
    if (argumentCount != 2 || FAILED(MFStartup(MF_VERSION, MFSTARTUP_FULL))) {
        return 1;
    }
    const HMODULE library = LoadLibraryW(arguments[1]);
    const auto create = reinterpret_cast<decltype(&MFCreateSinkWriterFromURL)>(
        reinterpret_cast<void*>(library != nullptr ? GetProcAddress(library, "MFCreateSinkWriterFromURL") : nullptr));
    if (create == nullptr) {
        return 1;
    }
    {
        TestHost host(create);
        for (std::string line; std::getline(std::cin, line);) {
            std::istringstream words(line);
            const HRESULT result = host.Execute(words);
            std::printf("%s %08lx\n", line.substr(0, line.find(' ')).c_str(), static_cast<unsigned long>(result));
            std::fflush(stdout);
        }
    }
    MFShutdown();
    return 0;
}
