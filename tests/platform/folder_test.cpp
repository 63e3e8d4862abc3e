#include "platform/folder.h"

#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <filesystem>
#include <string>

namespace receiver {
namespace {

constexpr HRESULT AccessDenied = static_cast<HRESULT>(0x80070005);
constexpr HRESULT NoDirectory = static_cast<HRESULT>(0x8007010B);
constexpr HRESULT PathNotFound = static_cast<HRESULT>(0x80070003);

class FolderTest : public testing::Test {
protected:
    const PrivateFolder folder;
    const std::filesystem::path top = folder.Path() / L"top";
    const std::filesystem::path deep = top / L"middle" / L"deep";
};

TEST_F(FolderTest, PathsAreJoinedWithOneSeparator) {
    EXPECT_EQ(JoinPath(L"C:\\a", L"b"), L"C:\\a\\b");
    EXPECT_EQ(JoinPath(L"C:\\a\\", L"b"), L"C:\\a\\b");
    EXPECT_EQ(JoinPath(L"C:/a/", L"b"), L"C:/a/b");
    EXPECT_EQ(JoinPath(L"C:/a", L"b"), L"C:/a\\b");
    EXPECT_EQ(JoinPath(L"C:\\", L"b.txt"), L"C:\\b.txt");
}

TEST_F(FolderTest, CreatesOneLevel) {
    EXPECT_EQ(EnsureFolder(top), S_OK);
    EXPECT_TRUE(std::filesystem::is_directory(top));
    EXPECT_EQ(EnsureFolder(top), S_OK);
}

TEST_F(FolderTest, OneLevelDoesNotCreateItsParent) {
    EXPECT_EQ(EnsureFolder(deep), PathNotFound);
    EXPECT_FALSE(std::filesystem::exists(top));
}

TEST_F(FolderTest, OneLevelAcceptsAFileOfThatName) {
    WriteBytes(top, "x");
    EXPECT_EQ(EnsureFolder(top), S_OK);
    EXPECT_EQ(ReadBytes(top), "x");
}

TEST_F(FolderTest, ATreeIsCreatedWithItsParents) {
    EXPECT_EQ(EnsureFolderTree(deep), S_OK);
    EXPECT_TRUE(std::filesystem::is_directory(deep));
    WriteBytes(deep / L"kept", "x");
    EXPECT_EQ(EnsureFolderTree(deep), S_OK);
    EXPECT_EQ(ReadBytes(deep / L"kept"), "x");
}

TEST_F(FolderTest, ATreeMayHaveBothKindsOfSeparators) {
    EXPECT_EQ(EnsureFolderTree(top.native() + L"/middle\\deep"), S_OK);
    EXPECT_TRUE(std::filesystem::is_directory(deep));
    EXPECT_EQ(EnsureFolderTree(top.native() + L"\\other\\"), S_OK);
    EXPECT_TRUE(std::filesystem::is_directory(top / L"other"));
}

TEST_F(FolderTest, AFileWithTheNameOfATreeIsRefused) {
    WriteBytes(top, "x");
    EXPECT_EQ(EnsureFolderTree(top), NoDirectory);
    EXPECT_EQ(EnsureFolderTree(top / L"middle"), NoDirectory);
    EXPECT_EQ(EnsureFolderTree(deep), NoDirectory);
    EXPECT_EQ(ReadBytes(top), "x");
}

TEST_F(FolderTest, ATreeWithoutAnExistingRootIsRefused) {
    EXPECT_EQ(EnsureFolderTree(L""), PathNotFound);
    const ImportPatch creations("kernel32.dll", "CreateDirectoryW", &CreateDirectoryW,
                                [](auto*, LPCWSTR, SECURITY_ATTRIBUTES*) {
                                    SetLastError(ERROR_PATH_NOT_FOUND);
                                    return FALSE;
                                });
    EXPECT_EQ(EnsureFolderTree(L"X:\\a\\b"), PathNotFound);
}

TEST_F(FolderTest, AFailedCreationEndsTheTree) {
    for (const std::wstring refused : {L"\\top", L"\\middle", L"\\deep"}) {
        const ImportPatch creations("kernel32.dll", "CreateDirectoryW", &CreateDirectoryW,
                                    [&](auto* original, LPCWSTR path, SECURITY_ATTRIBUTES* attributes) {
                                        if (!std::wstring_view(path).ends_with(refused)) {
                                            return original(path, attributes);
                                        }
                                        SetLastError(ERROR_ACCESS_DENIED);
                                        return FALSE;
                                    });
        EXPECT_EQ(EnsureFolderTree(deep), AccessDenied);
        EXPECT_FALSE(std::filesystem::exists(deep));
    }
}

TEST_F(FolderTest, AFolderWhoseAttributesCannotBeReadIsRefused) {
    const ImportPatch attributes("kernel32.dll", "GetFileAttributesW", &GetFileAttributesW, [](auto*, LPCWSTR) {
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_FILE_ATTRIBUTES;
    });
    EXPECT_EQ(EnsureFolderTree(top), AccessDenied);
}

} // namespace
} // namespace receiver
