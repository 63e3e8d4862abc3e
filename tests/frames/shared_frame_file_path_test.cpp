// The path of the shared frame file for different values of %ProgramData%.
#include "frames/shared_frame_file.h"

#include "tests/frames/shared_frame_file_fixture.h"
#include "tests/frames/shared_frame_file_pattern.h"
#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {
namespace {

namespace fs = std::filesystem;

// Lifts the system's limit on the length of a path.
constexpr wchar_t LongPathPrefix[] = L"\\\\?\\";

// Creates a folder below `parent` whose path has exactly `length` characters.
std::wstring MakeFolderOfLength(const fs::path& parent, std::size_t length) {
    std::wstring path = LongPathPrefix + parent.wstring();
    while (path.size() + 1 < length) {
        const std::size_t left = length - path.size() - 1;
        // The last level must have at least one character.
        const std::size_t level = left <= 100 ? left : left - 100 == 1 ? 99 : 100;
        path += L'\\' + std::wstring(level, L'x');
        EXPECT_NE(CreateDirectoryW(path.c_str(), nullptr), FALSE) << GetLastError();
    }
    EXPECT_EQ(path.size(), length);
    return path;
}

// Removes the levels that MakeFolderOfLength created, and a frame file in the last one.
void RemoveFolderOfLength(std::wstring path, const fs::path& parent) {
    DeleteFileW((path + L"\\Vistel\\frame-buffer.bin").c_str());
    RemoveDirectoryW((path + L"\\Vistel").c_str());
    const std::size_t parentLength = std::wstring_view(LongPathPrefix).size() + parent.wstring().size();
    while (path.size() > parentLength) {
        RemoveDirectoryW(path.c_str());
        path.resize(path.rfind(L'\\'));
    }
}

TEST_F(SharedFrameFileTest, AProgramDataOf259CharactersIsUsed) {
    const std::wstring longFolder = MakeFolderOfLength(folder.Path(), 259);
    {
        const VariableScope programData(L"ProgramData", longFolder.c_str());
        EXPECT_EQ(file.OpenSharedFrameFile(), S_OK);
        file.CloseSharedFrameFile();
        WIN32_FILE_ATTRIBUTE_DATA data{};
        EXPECT_NE(
            GetFileAttributesExW((longFolder + L"\\Vistel\\frame-buffer.bin").c_str(), GetFileExInfoStandard, &data),
            FALSE);
        EXPECT_EQ(data.nFileSizeLow, FrameFileSize);
    }
    RemoveFolderOfLength(longFolder, folder.Path());
}

TEST_F(SharedFrameFileTest, AnUnusableProgramDataGivesTheFixedPath) {
    const std::wstring longFolder = MakeFolderOfLength(folder.Path(), 260);
    const std::wstring huge(5000, L'x');
    // The calls are recorded and not made, so that this machine's own frame file is not touched.
    std::vector<std::wstring> names;
    const ImportPatch createDirectory("kernel32.dll", "CreateDirectoryW", &CreateDirectoryW,
                                      [&](auto*, LPCWSTR name, LPSECURITY_ATTRIBUTES) {
                                          names.emplace_back(name);
                                          SetLastError(ERROR_ALREADY_EXISTS);
                                          return FALSE;
                                      });
    const ImportPatch createFile("kernel32.dll", "CreateFileW", &CreateFileW,
                                 [&](auto*, LPCWSTR name, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
                                     names.emplace_back(name);
                                     SetLastError(ERROR_NOT_SUPPORTED);
                                     return INVALID_HANDLE_VALUE;
                                 });
    for (const wchar_t* value : {static_cast<const wchar_t*>(nullptr), L"", longFolder.c_str(), huge.c_str()}) {
        names.clear();
        const VariableScope programData(L"ProgramData", value);
        EXPECT_EQ(file.OpenSharedFrameFile(), Win32Result(ERROR_NOT_SUPPORTED));
        EXPECT_EQ(names, (std::vector<std::wstring>{L"C:\\ProgramData\\Vistel",
                                                    L"C:\\ProgramData\\Vistel\\frame-buffer.bin"}));
    }
    RemoveFolderOfLength(longFolder, folder.Path());
}

TEST_F(SharedFrameFileTest, ProgramDataMayEndInABackslashOrContainSlashes) {
    const std::wstring backslash = folder.Path().wstring() + L'\\';
    const std::wstring slashes = folder.Path().generic_wstring();
    for (const std::wstring& value : {backslash, slashes}) {
        const VariableScope programData(L"ProgramData", value.c_str());
        EXPECT_EQ(PublishPattern(file, 2), S_OK);
        file.CloseSharedFrameFile();
    }
    EXPECT_EQ(SequenceIn(path), 4U);
}

} // namespace
} // namespace receiver
