#include "frames/shared_frame_file.h"

#include "app/quality.h"
#include "frames/nv12_frame.h"
#include "platform/environment_variable.h"
#include "platform/folder.h"
#include "platform/hresult.h"

#include <cstring>
#include <string>
#include <utility>

namespace receiver {
namespace {

// The result of a failed call; E_FAIL when the system set no error.
HRESULT FailureResult() noexcept {
    const HRESULT result = LastErrorResult();
    return FAILED(result) ? result : E_FAIL;
}

} // namespace

HRESULT SharedFrameFile::OpenSharedFrameFile() {
    if (view) {
        return S_OK;
    }
    const std::wstring folder = ReadEnvironmentVariable(L"ProgramData").value_or(L"C:\\ProgramData") + L"\\Vistel";
    const std::wstring path = folder + L"\\frame-buffer.bin";
    RETURN_IF_FAILED(EnsureFolder(folder));

    UniqueFile newFile(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                   nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!newFile) {
        return FailureResult();
    }
    LARGE_INTEGER size{};
    size.QuadPart = sizeof(FrameFileLayout);
    if (SetFilePointerEx(newFile.Get(), size, nullptr, FILE_BEGIN) == 0 || SetEndOfFile(newFile.Get()) == 0) {
        return FailureResult();
    }
    // Unnamed: readers open the file themselves.
    UniqueHandle newMapping(CreateFileMappingW(newFile.Get(), nullptr, PAGE_READWRITE, 0, 0, nullptr));
    if (!newMapping) {
        return FailureResult();
    }
    MappedView newView(MapViewOfFile(newMapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, sizeof(FrameFileLayout)));
    if (!newView) {
        return FailureResult();
    }
    file = std::move(newFile);
    mapping = std::move(newMapping);
    view = std::move(newView);
    if (!IsHeaderValid(Layout().header)) {
        ResetFrameFile(Layout());
    }
    return S_OK;
}

HRESULT SharedFrameFile::PublishFrame(const std::uint8_t* data, std::uint32_t size, std::uint32_t width,
                                      std::uint32_t height) {
    if (data == nullptr || FindQuality(width, height) == nullptr || size != Nv12Size(width, height)) {
        return E_INVALIDARG;
    }
    RETURN_IF_FAILED(OpenSharedFrameFile());
    std::uint8_t* const buffer = BeginFrame(Layout(), width, height);
    std::memcpy(buffer, data, size);
    CompleteFrame(Layout(), buffer, GetTickCount64());
    return S_OK;
}

void SharedFrameFile::CloseSharedFrameFile() noexcept {
    view.Reset();
    mapping.Reset();
    file.Reset();
}

} // namespace receiver
