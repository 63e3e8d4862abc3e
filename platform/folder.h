// Creating a folder that may exist already.
#pragma once

#include "platform/hresult.h"

#include <string>

namespace receiver {

// Creates the last level of `path`. A folder that exists already is a success; a missing parent is not created.
[[nodiscard]] inline HRESULT EnsureFolder(const std::wstring& path) noexcept {
    if (CreateDirectoryW(path.c_str(), nullptr) == 0) {
        const HRESULT result = LastErrorResult();
        return result == HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS) ? S_OK : result;
    }
    return S_OK;
}

} // namespace receiver
