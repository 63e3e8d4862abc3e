// Where a capture goes: a known folder of the user, the product's subfolder, a name stamped with the local time.
#pragma once

#include <windows.h>

#include <shtypes.h>

#include <string>
#include <string_view>

namespace receiver {

// Makes the folder and the full path of a new capture file; `outPath` is written only on success. E_POINTER for a null
// `outPath`, else the code of the failing step. Two captures within one millisecond get the same path.
[[nodiscard]] HRESULT MakeCaptureFilePath(REFKNOWNFOLDERID folderId, std::wstring_view extension,
                                          std::wstring* outPath);

} // namespace receiver
