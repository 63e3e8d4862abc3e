#include "capture/capture_path.h"

#include "capture/capture_name.h"
#include "platform/folder.h"
#include "platform/handles.h"
#include "platform/hresult.h"

#include <shlobj.h>

namespace receiver {

HRESULT MakeCaptureFilePath(REFKNOWNFOLDERID folderId, std::wstring_view extension, std::wstring* outPath) {
    if (outPath == nullptr) {
        return E_POINTER;
    }
    CoTaskString knownFolder;
    RETURN_IF_FAILED(SHGetKnownFolderPath(folderId, KF_FLAG_CREATE, nullptr, knownFolder.Put()));
    const std::wstring folder = JoinPath(knownFolder.Get(), L"Vistel");
    RETURN_IF_FAILED(EnsureFolderTree(folder));
    SYSTEMTIME now{};
    GetLocalTime(&now);
    const std::wstring name = CaptureFileName(
        {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds}, extension);
    *outPath = JoinPath(folder, name);
    return S_OK;
}

} // namespace receiver
