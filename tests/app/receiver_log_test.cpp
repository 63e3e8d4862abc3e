#include "app/receiver_log.h"

#include "platform/handles.h"
#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <string>

namespace receiver {
namespace {

class ReceiverLogTest : public testing::Test {
protected:
    const PrivateFolder folder;
    const VariableScope temp{L"TMP", folder.Path().c_str()};
    const std::filesystem::path log = folder.Path() / L"vistel-receiver.log";
    const ImportPatch<void(SYSTEMTIME*), void (*)(void(WINAPI*)(SYSTEMTIME*), SYSTEMTIME*)> clock{
        "kernel32.dll", "GetLocalTime", &GetLocalTime, [](auto*, SYSTEMTIME* time) {
            *time = {};
            time->wHour = 4;
            time->wMinute = 5;
            time->wSecond = 6;
        }};
};

TEST_F(ReceiverLogTest, IsInTheTemporaryFolder) { EXPECT_EQ(std::filesystem::path(ReceiverLog::FilePath()), log); }

TEST_F(ReceiverLogTest, StartsWithItsHeader) {
    ReceiverLog::Reset();
    EXPECT_EQ(ReadBytes(log), "Vistel receiver log\r\n");
}

TEST_F(ReceiverLogTest, AppendsOneLineForEachEvent) {
    ReceiverLog::Reset();
    ReceiverLog::Write(L"Receiver starting");
    ReceiverLog::Write(L"Second");
    EXPECT_EQ(ReadBytes(log), "Vistel receiver log\r\n04:05:06  Receiver starting\r\n04:05:06  Second\r\n");
}

TEST_F(ReceiverLogTest, CreatesItsFileWithTheFirstLineToo) {
    ReceiverLog::Write(L"alone");
    EXPECT_EQ(ReadBytes(log), "04:05:06  alone\r\n");
}

TEST_F(ReceiverLogTest, WritesTheCodeOfAFailure) {
    ReceiverLog::Write(L"LOCALAPPDATA is unavailable.", E_ACCESSDENIED);
    EXPECT_EQ(ReadBytes(log), "04:05:06  LOCALAPPDATA is unavailable. (HRESULT 0x80070005)\r\n");
}

TEST_F(ReceiverLogTest, WritesNoCodeOfASuccess) {
    ReceiverLog::Write(L"done", S_FALSE);
    ReceiverLog::Write(L"done", 0x7FFFFFFF);
    EXPECT_EQ(ReadBytes(log), "04:05:06  done\r\n04:05:06  done\r\n");
}

TEST_F(ReceiverLogTest, AResetTruncatesIt) {
    ReceiverLog::Write(L"of an earlier run");
    ReceiverLog::Reset();
    EXPECT_EQ(ReadBytes(log), "Vistel receiver log\r\n");
}

TEST_F(ReceiverLogTest, WritesTheMessageByItsLength) {
    const std::wstring text = L"whole text";
    ReceiverLog::Write(std::wstring_view(text).substr(0, 5));
    ReceiverLog::Write(L"");
    EXPECT_EQ(ReadBytes(log), "04:05:06  whole\r\n04:05:06  \r\n");
}

TEST_F(ReceiverLogTest, WritesAQuestionMarkForEachCharacterAboveOneByte) {
    ReceiverLog::Write(L"a\u00FFb\u0100c\u20ACd\U0001F600e", E_FAIL);
    ReceiverLog::Write(L"next");
    EXPECT_EQ(ReadBytes(log), "04:05:06  a\xFF"
                              "b?c?d?e (HRESULT 0x80004005)\r\n04:05:06  next\r\n");
}

TEST_F(ReceiverLogTest, DoesNotCutALongText) {
    const std::wstring text(100000, L'x');
    ReceiverLog::Write(text);
    EXPECT_EQ(ReadBytes(log), "04:05:06  " + std::string(text.size(), 'x') + "\r\n");
}

TEST_F(ReceiverLogTest, IsInTheCurrentDirectoryWhenThereIsNoTemporaryFolder) {
    const auto before = std::filesystem::current_path();
    const PrivateFolder current;
    std::filesystem::current_path(current.Path());
    for (const DWORD length : {0U, 260U, 1000U}) {
        const ImportPatch unavailable("kernel32.dll", "GetTempPathW", &GetTempPathW,
                                      [length](auto*, DWORD, LPWSTR) { return length; });
        ReceiverLog::Reset();
        ReceiverLog::Write(L"here");
        const auto here = current.Path() / L"vistel-receiver.log";
        EXPECT_EQ(ReadBytes(here), "Vistel receiver log\r\n04:05:06  here\r\n") << length;
        std::filesystem::remove(here);
    }
    std::filesystem::current_path(before);
    EXPECT_FALSE(std::filesystem::exists(log));
}

TEST_F(ReceiverLogTest, AcceptsATemporaryFolderOf259Characters) {
    const ImportPatch longest("kernel32.dll", "GetTempPathW", &GetTempPathW, [](auto*, DWORD size, LPWSTR path) {
        EXPECT_EQ(size, 260U);
        std::fill_n(path, 258, L'x');
        path[258] = L'\\';
        path[259] = L'\0';
        return DWORD{259};
    });
    EXPECT_EQ(ReceiverLog::FilePath(), std::wstring(258, L'x') + L"\\vistel-receiver.log");
}

TEST_F(ReceiverLogTest, JoinsAFolderWithoutASeparator) {
    const ImportPatch bare("kernel32.dll", "GetTempPathW", &GetTempPathW, [](auto*, DWORD, LPWSTR path) {
        std::copy_n(L"C:\\Temp", 8, path);
        return DWORD{7};
    });
    EXPECT_EQ(ReceiverLog::FilePath(), L"C:\\Temp\\vistel-receiver.log");
}

TEST_F(ReceiverLogTest, ComputesThePathForEveryLine) {
    ReceiverLog::Write(L"first");
    const PrivateFolder other;
    const VariableScope moved(L"TMP", other.Path().c_str());
    ReceiverLog::Write(L"second");
    EXPECT_EQ(ReadBytes(log), "04:05:06  first\r\n");
    EXPECT_EQ(ReadBytes(other.Path() / L"vistel-receiver.log"), "04:05:06  second\r\n");
}

TEST_F(ReceiverLogTest, DropsLinesWhileItsFolderIsMissing) {
    const VariableScope missing(L"TMP", (folder.Path() / L"missing").c_str());
    ReceiverLog::Reset();
    ReceiverLog::Write(L"lost", E_FAIL);
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST_F(ReceiverLogTest, DropsLinesWhileItsFileIsLocked) {
    ReceiverLog::Reset();
    UniqueFile lock(CreateFileW(log.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(lock);
    ReceiverLog::Write(L"lost", E_FAIL);
    ReceiverLog::Reset();
    lock.Reset();
    ReceiverLog::Write(L"kept");
    EXPECT_EQ(ReadBytes(log), "Vistel receiver log\r\n04:05:06  kept\r\n");
}

TEST_F(ReceiverLogTest, DropsALineWhenMemoryRunsOut) {
    ReceiverLog::Reset();
    bool failed = true;
    unsigned allocation = 0;
    for (; failed; ++allocation) {
        const AllocationFault fault(allocation);
        ReceiverLog::Write(L"a line that is long enough to be put on the heap");
        failed = fault.Happened();
    }
    EXPECT_GT(allocation, 1U);
    std::filesystem::remove(log);
    ReceiverLog::Write(L"kept");
    EXPECT_EQ(ReadBytes(log), "04:05:06  kept\r\n");
}

} // namespace
} // namespace receiver
