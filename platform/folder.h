// Joins paths and creates folders.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace receiver {

// `folder` and `name` with one backslash between them, unless `folder` ends in a separator already.
[[nodiscard]] std::wstring JoinPath(std::wstring_view folder, std::wstring_view name);

// Creates the last level of `path`. An existing folder or file of that name is a success; a missing parent is not
// created.
[[nodiscard]] HRESULT EnsureFolder(const std::wstring& path) noexcept;

// Creates `path` and every missing parent. A folder that exists already is a success, a file in its place gives
// HRESULT_FROM_WIN32(ERROR_DIRECTORY).
[[nodiscard]] HRESULT EnsureFolderTree(const std::wstring& path);

} // namespace receiver
