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

// Of a call that has failed, whatever the last error is.
HRESULT FailureResult() noexcept {
    const HRESULT result = LastErrorResult();
    return FAILED(result) ? result : E_FAIL;
}

} // namespace

HRESULT SharedFrameFile::OpenSharedFrameFile() {
    if (view_) {
        return S_OK;
    }
    const std::wstring folder = ReadEnvironmentVariable(L"ProgramData").value_or(L"C:\\ProgramData") + L"\\Vistel";
    const std::wstring path = folder + L"\\frame-buffer.bin";
    RETURN_IF_FAILED(EnsureFolder(folder));

    UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return FailureResult();
    }
    LARGE_INTEGER size{};
    size.QuadPart = sizeof(FrameFileLayout);
    if (SetFilePointerEx(file.Get(), size, nullptr, FILE_BEGIN) == 0 || SetEndOfFile(file.Get()) == 0) {
        return FailureResult();
    }
    // Unnamed: readers open the file themselves.
    UniqueHandle mapping(CreateFileMappingW(file.Get(), nullptr, PAGE_READWRITE, 0, 0, nullptr));
    if (!mapping) {
        return FailureResult();
    }
    MappedView view(MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, sizeof(FrameFileLayout)));
    if (!view) {
        return FailureResult();
    }
    file_ = std::move(file);
    mapping_ = std::move(mapping);
    view_ = std::move(view);
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
    view_.Reset();
    mapping_.Reset();
    file_.Reset();
}

} // namespace receiver
