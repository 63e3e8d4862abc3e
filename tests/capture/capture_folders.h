// Replaces the user's folders for pictures and videos by folders of the test, and the local time by a fixed one.
#pragma once

#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <knownfolders.h>
#include <shlobj.h>

#include <cwchar>
#include <filesystem>
#include <iterator>
#include <string>

namespace receiver {

class CaptureFolders {
public:
    const PrivateFolder folder;
    std::filesystem::path pictures = folder.Path() / L"Pictures";
    const std::filesystem::path videos = folder.Path() / L"Videos";
    SYSTEMTIME now{2024, 3, 2, 5, 14, 27, 9, 42}; // a Tuesday
    HRESULT result = S_OK; // of every request for a folder
    bool created = true; // by a request for it

    // The path of a capture made at `now`.
    [[nodiscard]] std::wstring PicturePath() const { return (pictures / L"Vistel" / (Stamp() + L".jpg")).wstring(); }
    [[nodiscard]] std::wstring VideoPath() const { return (videos / L"Vistel" / (Stamp() + L".mp4")).wstring(); }

private:
    struct KnownFolder {
        const CaptureFolders& folders;

        HRESULT operator()(decltype(&SHGetKnownFolderPath), REFKNOWNFOLDERID id, DWORD flags, HANDLE token,
                           PWSTR* path) const {
            const std::filesystem::path& found = id == FOLDERID_Pictures ? folders.pictures : folders.videos;
            if ((id != FOLDERID_Pictures && id != FOLDERID_Videos) || flags != KF_FLAG_CREATE || token != nullptr) {
                return E_INVALIDARG;
            }
            if (FAILED(folders.result)) {
                return folders.result;
            }
            if (folders.created) {
                std::filesystem::create_directories(found);
            }
            const std::wstring text = found.wstring();
            *path = static_cast<PWSTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(wchar_t)));
            std::wmemcpy(*path, text.c_str(), text.size() + 1);
            return S_OK;
        }
    };
    struct FixedClock {
        const CaptureFolders& folders;

        void operator()(decltype(&GetLocalTime), SYSTEMTIME* time) const { *time = folders.now; }
    };

    [[nodiscard]] std::wstring Stamp() const {
        wchar_t text[64] = L"";
        std::swprintf(text, std::size(text), L"Vistel-%04d%02d%02d-%02d%02d%02d-%03d", now.wYear, now.wMonth, now.wDay,
                      now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
        return text;
    }

    ImportPatch<HRESULT(REFKNOWNFOLDERID, DWORD, HANDLE, PWSTR*), KnownFolder> knownFolder{
        "shell32.dll", "SHGetKnownFolderPath", &SHGetKnownFolderPath, KnownFolder{*this}};
    ImportPatch<void(SYSTEMTIME*), FixedClock> clock{"kernel32.dll", "GetLocalTime", &GetLocalTime, FixedClock{*this}};
};

} // namespace receiver
