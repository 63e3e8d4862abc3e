// The path of a new capture file: a known folder of the user, the product's subfolder, a name with the local time.
#pragma once

#include <windows.h>

#include <shtypes.h>

#include <string>
#include <string_view>

namespace receiver {

// Creates the folder and writes the full path of a new capture file to `outPath`, which changes only on success.
// E_POINTER for a null `outPath`, else the code of the failing step. Two captures within one millisecond get the same
// path.
[[nodiscard]] HRESULT MakeCaptureFilePath(REFKNOWNFOLDERID folderId, std::wstring_view extension,
                                          std::wstring* outPath);

} // namespace receiver
