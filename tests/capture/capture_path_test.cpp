#include "capture/capture_path.h"

#include "capture/capture_name.h"
#include "tests/capture/capture_folders.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace receiver {
namespace {

class CapturePathTest : public testing::Test {
protected:
    CaptureFolders folders;
    std::wstring path = L"untouched";
};

TEST_F(CapturePathTest, IsInTheProductsSubfolder) {
    EXPECT_EQ(MakeCaptureFilePath(FOLDERID_Pictures, L"jpg", &path), S_OK);
    EXPECT_EQ(path, (folders.pictures / L"Vistel" / L"Vistel-20240305-142709-042.jpg").wstring());
    EXPECT_TRUE(std::filesystem::is_empty(folders.pictures / L"Vistel"));
    EXPECT_FALSE(std::filesystem::exists(folders.videos));

    folders.now = {2026, 12, 4, 31, 23, 59, 59, 999};
    EXPECT_EQ(MakeCaptureFilePath(FOLDERID_Videos, L"mp4", &path), S_OK);
    EXPECT_EQ(path, (folders.videos / L"Vistel" / L"Vistel-20261231-235959-999.mp4").wstring());
}

TEST_F(CapturePathTest, AnExistingFolderIsLeftAlone) {
    const std::filesystem::path kept = folders.pictures / L"Vistel" / L"Vistel-20240305-142709-042.jpg";
    std::filesystem::create_directories(kept.parent_path());
    WriteBytes(kept, "x");
    EXPECT_EQ(MakeCaptureFilePath(FOLDERID_Pictures, L"jpg", &path), S_OK);
    EXPECT_EQ(path, kept.wstring());
    EXPECT_EQ(ReadBytes(kept), "x");
}

TEST_F(CapturePathTest, CreatesEveryMissingParent) {
    folders.created = false;
    EXPECT_EQ(MakeCaptureFilePath(FOLDERID_Videos, L"mp4", &path), S_OK);
    EXPECT_TRUE(std::filesystem::is_directory(folders.videos / L"Vistel"));
}

// `share` is mapped to the test's folder; paths above it do not exist.
TEST_F(CapturePathTest, TheUsersFolderMayBeOnANetworkShare) {
    const std::wstring share = LR"(\\server\share)";
    const auto onDisk = [&](std::wstring_view name) {
        return name.starts_with(share) ? folders.folder.Path().wstring().append(name.substr(share.size())) : L"?";
    };
    const ImportPatch creations("kernel32.dll", "CreateDirectoryW", &CreateDirectoryW,
                                [&](auto* original, LPCWSTR name, SECURITY_ATTRIBUTES* attributes) {
                                    return original(onDisk(name).c_str(), attributes);
                                });
    const ImportPatch looks("kernel32.dll", "GetFileAttributesW", &GetFileAttributesW,
                            [&](auto* original, LPCWSTR name) { return original(onDisk(name).c_str()); });
    folders.pictures = share + LR"(\anna\Pictures)";
    folders.created = false;
    EXPECT_EQ(MakeCaptureFilePath(FOLDERID_Pictures, L"jpg", &path), S_OK);
    EXPECT_EQ(path, share + LR"(\anna\Pictures\Vistel\Vistel-20240305-142709-042.jpg)");
    EXPECT_TRUE(std::filesystem::is_directory(folders.folder.Path() / L"anna" / L"Pictures" / L"Vistel"));
}

TEST_F(CapturePathTest, ANullOutputIsRefused) {
    EXPECT_EQ(MakeCaptureFilePath(FOLDERID_Pictures, L"jpg", nullptr), E_POINTER);
    EXPECT_TRUE(std::filesystem::is_empty(folders.folder.Path()));
}

TEST_F(CapturePathTest, AKnownFolderThatCannotBeResolvedFailsWithItsCode) {
    folders.result = static_cast<HRESULT>(0x80070002);
    EXPECT_EQ(MakeCaptureFilePath(FOLDERID_Pictures, L"jpg", &path), folders.result);
    EXPECT_EQ(path, L"untouched");
}

TEST_F(CapturePathTest, AFileWithTheSubfoldersNameFails) {
    std::filesystem::create_directory(folders.pictures);
    WriteBytes(folders.pictures / L"Vistel", "x");
    EXPECT_EQ(MakeCaptureFilePath(FOLDERID_Pictures, L"jpg", &path), HRESULT_FROM_WIN32(ERROR_DIRECTORY));
    EXPECT_EQ(path, L"untouched");
    EXPECT_EQ(ReadBytes(folders.pictures / L"Vistel"), "x");
}

TEST_F(CapturePathTest, AFolderThatCannotBeCreatedFailsWithItsCode) {
    const ImportPatch directories("kernel32.dll", "CreateDirectoryW", &CreateDirectoryW,
                                  [](auto*, LPCWSTR, SECURITY_ATTRIBUTES*) {
                                      SetLastError(ERROR_DISK_FULL);
                                      return FALSE;
                                  });
    EXPECT_EQ(MakeCaptureFilePath(FOLDERID_Videos, L"mp4", &path), HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    EXPECT_EQ(path, L"untouched");
}

// Without the replaced folders and clock.
TEST(CapturePathSystemTest, IsInTheUsersOwnFolderAtTheLocalTime) {
    PWSTR pictures = nullptr;
    ASSERT_EQ(SHGetKnownFolderPath(FOLDERID_Pictures, KF_FLAG_CREATE, nullptr, &pictures), S_OK);
    const std::filesystem::path expected = std::filesystem::path(pictures) / L"Vistel";
    CoTaskMemFree(pictures);

    SYSTEMTIME before{};
    SYSTEMTIME after{};
    std::wstring path;
    GetLocalTime(&before);
    EXPECT_EQ(MakeCaptureFilePath(FOLDERID_Pictures, L"jpg", &path), S_OK);
    GetLocalTime(&after);
    EXPECT_EQ(std::filesystem::path(path).parent_path(), expected);
    EXPECT_TRUE(std::filesystem::is_directory(expected));
    const auto nameAt = [](const SYSTEMTIME& time) {
        return CaptureFileName(
            {time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds}, L"jpg");
    };
    const std::wstring name = std::filesystem::path(path).filename().wstring();
    EXPECT_GE(name, nameAt(before));
    EXPECT_LE(name, nameAt(after));
}

} // namespace
} // namespace receiver
