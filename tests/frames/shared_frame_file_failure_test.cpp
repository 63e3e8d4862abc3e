// Conditions under which the shared frame file cannot be opened. Afterwards nothing is open and the next attempt works.
// tests/faults/ makes every system call fail.
#include "frames/shared_frame_file.h"

#include "platform/handles.h"
#include "tests/frames/shared_frame_file_fixture.h"
#include "tests/frames/shared_frame_file_pattern.h"
#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace receiver {
namespace {

namespace fs = std::filesystem;

TEST_F(SharedFrameFileTest, AMissingParentFolderIsNotCreated) {
    const fs::path missing = folder.Path() / L"missing";
    const VariableScope programData(L"ProgramData", missing.c_str());
    EXPECT_EQ(file.OpenSharedFrameFile(), Win32Result(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(PublishPattern(file, 2), Win32Result(ERROR_PATH_NOT_FOUND));
    EXPECT_FALSE(fs::exists(missing));

    fs::create_directory(missing);
    EXPECT_EQ(PublishPattern(file, 2), S_OK);
    EXPECT_EQ(SequenceIn(missing / L"Vistel" / L"frame-buffer.bin"), 2U);
}

TEST_F(SharedFrameFileTest, AFileWithTheFoldersNameFails) {
    WriteBytes(dataFolder, "abc");
    EXPECT_EQ(file.OpenSharedFrameFile(), Win32Result(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(ReadBytes(dataFolder), "abc");

    fs::remove(dataFolder);
    EXPECT_EQ(file.OpenSharedFrameFile(), S_OK);
}

TEST_F(SharedFrameFileTest, AFolderWithTheFilesNameFails) {
    fs::create_directories(path);
    EXPECT_EQ(PublishPattern(file, 2), Win32Result(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(fs::is_directory(path));

    fs::remove(path);
    EXPECT_EQ(PublishPattern(file, 2), S_OK);
}

// The file is opened for reading and writing and shared for both, but not for deletion. A handle without any access
// never conflicts.
TEST_F(SharedFrameFileTest, AFileOpenInAnotherProcessIsOpenedWhenTheSharingModesMatch) {
    constexpr DWORD ShareReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;
    fs::create_directory(dataFolder);
    WriteBytes(path, "abc");
    for (const DWORD access : {DWORD{0}, DWORD{GENERIC_READ}, DWORD{GENERIC_WRITE}, GENERIC_READ | GENERIC_WRITE,
                               DWORD{DELETE}, GENERIC_READ | DELETE}) {
        for (DWORD share = 0; share <= ShareAll; ++share) {
            const bool compatible = (share & ShareReadWrite) == ShareReadWrite && (access & DELETE) == 0;
            const bool opens = access == 0 || compatible;
            const std::string before = ReadBytes(path);
            UniqueFile other(
                CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
            ASSERT_TRUE(other);
            EXPECT_EQ(PublishPattern(file, 2), opens ? S_OK : Win32Result(ERROR_SHARING_VIOLATION))
                << std::hex << access << " shared " << share;
            if (opens) {
                file.CloseSharedFrameFile();
            }
            other.Reset();
            ExpectClosed();
            EXPECT_EQ(ReadBytes(path) != before, opens);
        }
    }
    EXPECT_EQ(PublishPattern(file, 2), S_OK);
}

TEST_F(SharedFrameFileTest, ALongerFileMappedByAnotherProcessIsTruncatedOrLeftAlone) {
    fs::create_directory(dataFolder);
    const std::string longer(FrameFileSize + 4096, 'x');
    WriteBytes(path, longer);
    {
        const UniqueFile other = OpenForReading(FILE_SHARE_READ | FILE_SHARE_WRITE);
        const UniqueHandle mapping(CreateFileMappingW(other.Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
        const MappedView view(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 0));
        ASSERT_TRUE(view);
        const HRESULT result = PublishPattern(file, 2);
        if (result != S_OK) { // Windows does not truncate a mapped file, Wine does.
            EXPECT_EQ(result, Win32Result(ERROR_USER_MAPPED_FILE));
            EXPECT_EQ(ReadBytes(path), longer);
        }
        file.CloseSharedFrameFile();
    }
    ExpectClosed();
    EXPECT_EQ(PublishPattern(file, 3), S_OK);
    EXPECT_EQ(fs::file_size(path), FrameFileSize);
}

TEST_F(SharedFrameFileTest, AReadOnlyFileFails) {
    fs::create_directory(dataFolder);
    WriteBytes(path, "abc");
    ASSERT_NE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY), FALSE);
    const bool writable = static_cast<bool>(UniqueFile(
        CreateFileW(path.c_str(), GENERIC_WRITE, ShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)));
    const HRESULT result = writable ? S_OK : file.OpenSharedFrameFile();
    ASSERT_NE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL), FALSE);
    if (writable) {
        GTEST_SKIP() << "Wine lets root write to a read-only file.";
    }
    EXPECT_EQ(result, Win32Result(ERROR_ACCESS_DENIED));
    EXPECT_EQ(ReadBytes(path), "abc");
    ExpectClosed();
    EXPECT_EQ(file.OpenSharedFrameFile(), S_OK);
}

// A failed call that sets no error code is still reported as a failure.
TEST_F(SharedFrameFileTest, AFailureWithoutAnErrorCodeDoesNotCountAsOpened) {
    const auto expectFailure = [this] {
        EXPECT_EQ(file.OpenSharedFrameFile(), E_FAIL);
        EXPECT_EQ(PublishPattern(file, 2), E_FAIL);
        ExpectClosed();
    };
    const auto fail = [](auto result) {
        return [result](auto*, auto...) {
            SetLastError(ERROR_SUCCESS);
            return result;
        };
    };
    fs::create_directory(dataFolder);
    {
        const ImportPatch files("kernel32.dll", "CreateFileW", &CreateFileW, fail(INVALID_HANDLE_VALUE));
        EXPECT_EQ(file.OpenSharedFrameFile(), E_FAIL);
        EXPECT_EQ(PublishPattern(file, 2), E_FAIL);
    }
    {
        const ImportPatch pointers("kernel32.dll", "SetFilePointerEx", &SetFilePointerEx, fail(BOOL{FALSE}));
        expectFailure();
    }
    {
        const ImportPatch ends("kernel32.dll", "SetEndOfFile", &SetEndOfFile, fail(BOOL{FALSE}));
        expectFailure();
    }
    {
        const ImportPatch mappings("kernel32.dll", "CreateFileMappingW", &CreateFileMappingW, fail(HANDLE{nullptr}));
        expectFailure();
    }
    {
        const ImportPatch views("kernel32.dll", "MapViewOfFile", &MapViewOfFile, fail(LPVOID{nullptr}));
        expectFailure();
    }
    EXPECT_EQ(PublishPattern(file, 2), S_OK);
}

TEST_F(SharedFrameFileTest, ClosesInAnyState) {
    file.CloseSharedFrameFile();
    file.CloseSharedFrameFile();
    fs::create_directories(path);
    EXPECT_NE(file.OpenSharedFrameFile(), S_OK);
    file.CloseSharedFrameFile();
    fs::remove(path);

    ASSERT_EQ(PublishPattern(file, 2), S_OK);
    file.CloseSharedFrameFile();
    ExpectClosed();
    file.CloseSharedFrameFile();
    EXPECT_EQ(SequenceIn(path), 2U);

    ASSERT_EQ(PublishPattern(file, 4), S_OK);
    EXPECT_EQ(SequenceIn(path), 4U);
}

TEST_F(SharedFrameFileTest, DestructionClosesTheFileAndLeavesItOnDisk) {
    {
        SharedFrameFile temporary;
        ASSERT_EQ(PublishPattern(temporary, 2), S_OK);
        EXPECT_FALSE(OpenForReading(0));
    }
    ExpectClosed();
    EXPECT_EQ(fs::file_size(path), FrameFileSize);
}

TEST_F(SharedFrameFileTest, RepeatedOpeningAndClosingLeaksNoHandle) {
    for (int round = 0; round < 50; ++round) {
        ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
        file.CloseSharedFrameFile();
    }
    ExpectClosed();
}

} // namespace
} // namespace receiver
