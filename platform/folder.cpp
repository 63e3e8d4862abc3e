#include "platform/folder.h"

#include "platform/hresult.h"

namespace receiver {

std::wstring JoinPath(std::wstring_view folder, std::wstring_view name) {
    std::wstring path(folder);
    if (!path.ends_with(L'\\') && !path.ends_with(L'/')) {
        path += L'\\';
    }
    return path.append(name);
}

HRESULT EnsureFolder(const std::wstring& path) noexcept {
    if (CreateDirectoryW(path.c_str(), nullptr) == 0) {
        const HRESULT result = LastErrorResult();
        return result == HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS) ? S_OK : result;
    }
    return S_OK;
}

HRESULT EnsureFolderTree(const std::wstring& path) {
    HRESULT result = EnsureFolder(path);
    const std::size_t separator = path.find_last_of(L"\\/");
    if (result == HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND) && separator != std::wstring::npos) {
        RETURN_IF_FAILED(EnsureFolderTree(path.substr(0, separator)));
        result = EnsureFolder(path);
    }
    RETURN_IF_FAILED(result);
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return LastErrorResult();
    }
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? S_OK : HRESULT_FROM_WIN32(ERROR_DIRECTORY);
}

} // namespace receiver
