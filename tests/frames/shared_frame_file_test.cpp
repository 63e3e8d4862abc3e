// The shared frame file on disk: its size, its header and the frames that are published into it.
#include "frames/shared_frame_file.h"

#include "platform/handles.h"
#include "tests/frames/frame_pattern.h"
#include "tests/frames/shared_frame_file_fixture.h"
#include "tests/frames/shared_frame_file_pattern.h"
#include "tests/support/function_patch.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace receiver {
namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<std::uint8_t>;

Bytes ReadFileBytes(const fs::path& path) {
    const std::string bytes = ReadBytes(path);
    return {bytes.begin(), bytes.end()};
}

void WriteFileBytes(const fs::path& path, const Bytes& bytes) {
    WriteBytes(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void Store32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
    std::memcpy(bytes.data() + offset, &value, sizeof(value));
}

void Store64(Bytes& bytes, std::size_t offset, std::uint64_t value) {
    std::memcpy(bytes.data() + offset, &value, sizeof(value));
}

std::uint32_t Load32(const Bytes& bytes, std::size_t offset) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + offset, sizeof(value));
    return value;
}

std::uint64_t Load64(const Bytes& bytes, std::size_t offset) {
    std::uint64_t value = 0;
    std::memcpy(&value, bytes.data() + offset, sizeof(value));
    return value;
}

// The first 24 bytes of the file.
Bytes HeaderStart(std::uint32_t version, std::uint32_t width, std::uint32_t height, std::uint32_t stride) {
    Bytes bytes = {'V', 'S', 'T', 'L'};
    bytes.resize(24);
    Store32(bytes, 4, version);
    Store32(bytes, 8, width);
    Store32(bytes, 12, height);
    Store32(bytes, 16, stride);
    Store32(bytes, 20, width * height * 3 / 2);
    return bytes;
}

Bytes DefaultFile() {
    Bytes bytes = HeaderStart(2, 1280, 720, 1280);
    bytes.resize(FrameFileSize);
    return bytes;
}

// A file of full size in which every byte after the first fields is set.
Bytes UsedFile(const Bytes& start) {
    Bytes bytes = start;
    bytes.resize(FrameFileSize, 0xA5);
    return bytes;
}
TEST_F(SharedFrameFileTest, CreatesFolderAndFileWithTheDefaultHeader) {
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    EXPECT_EQ(ReadFileBytes(path), DefaultFile());
}

TEST_F(SharedFrameFileTest, UsesAFolderThatExists) {
    fs::create_directory(dataFolder);
    WriteFileBytes(dataFolder / L"other.txt", {1, 2, 3});
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    EXPECT_EQ(ReadFileBytes(dataFolder / L"other.txt"), (Bytes{1, 2, 3}));
}

TEST_F(SharedFrameFileTest, TruncatesOrExtendsAFileToItsSize) {
    fs::create_directory(dataFolder);
    constexpr std::size_t Sizes[] = {0, 1, 64, FrameFileSize - 1, FrameFileSize, FrameFileSize + 1, 2 * FrameFileSize};
    for (const std::size_t size : Sizes) {
        WriteFileBytes(path, Bytes(size, 0xA5));
        ASSERT_EQ(file.OpenSharedFrameFile(), S_OK) << size;
        EXPECT_EQ(fs::file_size(path), FrameFileSize) << size;
        EXPECT_EQ(ReadFileBytes(path), DefaultFile()) << size;
        file.CloseSharedFrameFile();
        EXPECT_EQ(fs::file_size(path), FrameFileSize) << size;
    }
}

TEST_F(SharedFrameFileTest, KeepsTheContentOfAFileOfAnotherLengthWithAValidHeader) {
    fs::create_directory(dataFolder);
    const Bytes used = UsedFile(HeaderStart(2, 1920, 1080, 1920));
    Bytes longer = used;
    longer.resize(FrameFileSize + 4096, 0x5A);
    WriteFileBytes(path, longer);
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    EXPECT_EQ(ReadFileBytes(path), used);
    file.CloseSharedFrameFile();

    Bytes shorter = used;
    shorter.resize(1000);
    WriteFileBytes(path, shorter);
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    shorter.resize(FrameFileSize, 0);
    EXPECT_EQ(ReadFileBytes(path), shorter);
}

TEST_F(SharedFrameFileTest, AShorterFileIsExtendedOrReset) {
    fs::create_directory(dataFolder);
    const Bytes used = UsedFile(HeaderStart(2, 1920, 1080, 1920));
    // The header's last non-zero byte is number 22: a shorter file has no valid header.
    for (const std::size_t size : {0U, 1U, 22U, 23U, 24U, 32U, 63U, 64U, 65U, 3110464U, 6220863U}) {
        Bytes shorter = used;
        shorter.resize(size);
        WriteFileBytes(path, shorter);
        shorter.resize(FrameFileSize);
        ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
        EXPECT_EQ(ReadFileBytes(path), size > 22 ? shorter : DefaultFile()) << size;
        file.CloseSharedFrameFile();
    }
    ExpectClosed();
}

TEST_F(SharedFrameFileTest, PublishesIntoAFileInAnyStateOfPublishing) {
    struct Case {
        std::uint64_t sequence;
        std::uint32_t activeBuffer;
        std::uint64_t sequenceAfterwards;
        std::uint32_t target;
    };
    constexpr std::array Cases{
        Case{0, 1, 2, 0},
        Case{1, 0, 4, 1},
        Case{1, 1, 4, 0},
        Case{0xFFFFFFFE, 2, 0x100000000, 0},
        Case{0xFFFFFFFF, 0xFFFFFFFF, 0x100000002, 0},
        Case{0x7FFFFFFFFFFFFFFF, 0x100, 0x8000000000000002, 0},
        Case{0xFFFFFFFFFFFFFFFC, 0, 0xFFFFFFFFFFFFFFFE, 1},
        Case{0xFFFFFFFFFFFFFFFD, 0, 0, 1}, // overflows
        Case{0xFFFFFFFFFFFFFFFE, 1, 0, 0},
        Case{0xFFFFFFFFFFFFFFFF, 0x80000000, 2, 0},
    };
    fs::create_directory(dataFolder);
    for (const Case& state : Cases) {
        Bytes expected = UsedFile(HeaderStart(2, 1920, 1080, 1920));
        Store64(expected, 24, state.sequence);
        Store32(expected, 32, state.activeBuffer);
        WriteFileBytes(path, expected);
        ASSERT_EQ(PublishPattern(file, 2), S_OK);
        file.CloseSharedFrameFile();

        const Bytes bytes = ReadFileBytes(path);
        ASSERT_EQ(bytes.size(), FrameFileSize);
        const Bytes start = HeaderStart(2, 1280, 720, 1280);
        std::memcpy(expected.data(), start.data(), start.size());
        Store64(expected, 24, state.sequenceAfterwards);
        Store32(expected, 32, state.target);
        Store64(expected, 40, Load64(bytes, 40));
        FillPattern(expected.data() + 64 + std::size_t{state.target} * MaxFrameSize, 1382400, 2);
        EXPECT_EQ(bytes, expected) << std::hex << state.sequence << " and buffer " << state.activeBuffer;
    }
}

TEST_F(SharedFrameFileTest, LeavesAValidHeaderUnchanged) {
    fs::create_directory(dataFolder);
    for (const Bytes& start : {HeaderStart(2, 1280, 720, 1280), HeaderStart(2, 1920, 1080, 1920)}) {
        Bytes used = UsedFile(start);
        Store64(used, 24, 41); // odd: corrected by the next frame, not when the file is opened
        Store32(used, 32, 7);
        Store64(used, 40, 123456789);
        WriteFileBytes(path, used);
        ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
        EXPECT_EQ(ReadFileBytes(path), used);
        file.CloseSharedFrameFile();
    }
}

TEST_F(SharedFrameFileTest, ResetsAFileWithAnyOtherHeader) {
    fs::create_directory(dataFolder);
    Bytes wrongMagic = HeaderStart(2, 1280, 720, 1280);
    wrongMagic[3] = 'l';
    Bytes wrongFrameSize = HeaderStart(2, 1280, 720, 1280);
    Store32(wrongFrameSize, 20, 1382399);
    const std::vector<Bytes> starts{
        HeaderStart(1, 1280, 720, 1280),
        HeaderStart(3, 1280, 720, 1280),
        HeaderStart(2, 1920, 1080, 1280),
        HeaderStart(2, 1280, 1080, 1280),
        HeaderStart(2, 1920, 720, 1920),
        HeaderStart(2, 3840, 2160, 3840),
        HeaderStart(2, 720, 1280, 720),
        HeaderStart(2, 0, 0, 0),
        HeaderStart(0x02000000, 1280, 720, 1280),
        Bytes(24, 0xFF),
        wrongMagic,
        wrongFrameSize,
        Bytes(24),
    };
    for (const Bytes& start : starts) {
        WriteFileBytes(path, UsedFile(start));
        ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
        EXPECT_EQ(ReadFileBytes(path), DefaultFile()) << "case " << &start - starts.data();
        file.CloseSharedFrameFile();
    }
}

TEST_F(SharedFrameFileTest, ASecondOpenDoesNothing) {
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    int calls = 0;
    const ImportPatch createDirectory("kernel32.dll", "CreateDirectoryW", &CreateDirectoryW,
                                      [&](auto* original, LPCWSTR name, LPSECURITY_ATTRIBUTES security) {
                                          ++calls;
                                          return original(name, security);
                                      });
    const ImportPatch createFile("kernel32.dll", "CreateFileW", &CreateFileW,
                                 [&](auto* original, LPCWSTR name, DWORD access, DWORD share,
                                     LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags, HANDLE pattern) {
                                     ++calls;
                                     return original(name, access, share, security, disposition, flags, pattern);
                                 });
    EXPECT_EQ(file.OpenSharedFrameFile(), S_OK);
    EXPECT_EQ(PublishPattern(file, 2), S_OK);
    EXPECT_EQ(calls, 0);
}

TEST_F(SharedFrameFileTest, OthersCanReadAndWriteButNotDeleteTheOpenFile) {
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    struct Case {
        DWORD access;
        DWORD share;
        DWORD error;
    };
    constexpr DWORD ShareReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;
    constexpr std::array Cases{
        Case{GENERIC_READ, ShareReadWrite, ERROR_SUCCESS}, Case{GENERIC_WRITE, ShareReadWrite, ERROR_SUCCESS},
        Case{DELETE, ShareAll, ERROR_SHARING_VIOLATION},
        Case{GENERIC_READ, FILE_SHARE_READ, ERROR_SHARING_VIOLATION}, // the receiver itself writes
    };
    for (const Case& other : Cases) {
        SetLastError(ERROR_SUCCESS);
        const UniqueFile handle(CreateFileW(path.c_str(), other.access, other.share, nullptr, OPEN_EXISTING,
                                            FILE_ATTRIBUTE_NORMAL, nullptr));
        const DWORD error = handle ? DWORD{ERROR_SUCCESS} : GetLastError();
        EXPECT_EQ(error, other.error) << std::hex << other.access << " shared " << other.share;
    }
}

TEST_F(SharedFrameFileTest, PublishesIntoTheBuffersAlternately) {
    const ULONGLONG before = GetTickCount64();
    ASSERT_EQ(PublishPattern(file, 2), S_OK);
    const ULONGLONG after = GetTickCount64();
    Bytes expected = DefaultFile();
    Store64(expected, 24, 2);
    Store32(expected, 32, 1);
    FillPattern(expected.data() + 3110464, 1382400, 2);
    Bytes bytes = ReadFileBytes(path);
    ASSERT_EQ(bytes.size(), FrameFileSize);
    EXPECT_GE(Load64(bytes, 40), before);
    EXPECT_LE(Load64(bytes, 40), after);
    Store64(expected, 40, Load64(bytes, 40));
    EXPECT_EQ(bytes, expected);

    ASSERT_EQ(PublishPattern(file, 3), S_OK);
    bytes = ReadFileBytes(path);
    const Bytes start = HeaderStart(2, 1920, 1080, 1920);
    std::memcpy(expected.data(), start.data(), start.size());
    Store64(expected, 24, 4);
    Store32(expected, 32, 0);
    FillPattern(expected.data() + 64, 3110400, 3);
    Store64(expected, 40, Load64(bytes, 40));
    EXPECT_EQ(bytes, expected);
}

TEST_F(SharedFrameFileTest, ATimeStampNeedsMoreThan32BitsAfter49Days) {
    const ImportPatch clock("kernel32.dll", "GetTickCount64", &GetTickCount64,
                            [](auto*) { return ULONGLONG{0x0000'0203'0405'0607}; });
    ASSERT_EQ(PublishPattern(file, 2), S_OK);
    EXPECT_EQ(Load64(ReadFileBytes(path), 40), 0x0000'0203'0405'0607U);
}

TEST_F(SharedFrameFileTest, AnOddSequenceOfFiveEndsAtEight) {
    fs::create_directory(dataFolder);
    Bytes used = DefaultFile();
    Store64(used, 24, 5);
    WriteFileBytes(path, used);
    ASSERT_EQ(PublishPattern(file, 2), S_OK);
    EXPECT_EQ(SequenceIn(path), 8U);
}

TEST_F(SharedFrameFileTest, RefusesOtherFramesWithoutTouchingTheFile) {
    struct Case {
        std::uint32_t size;
        std::uint32_t width;
        std::uint32_t height;
    };
    constexpr std::array Cases{
        Case{1382400, 1280, 1080}, Case{2073600, 1280, 1080}, Case{1382400, 1920, 720},   Case{2073600, 1920, 720},
        Case{1382399, 1280, 720},  Case{1382401, 1280, 720},  Case{3110400, 1280, 720},   Case{3110399, 1920, 1080},
        Case{3110401, 1920, 1080}, Case{1382400, 1920, 1080}, Case{0, 1280, 720},         Case{0, 0, 0},
        Case{1382400, 720, 1280},  Case{3110400, 1080, 1920}, Case{12441600, 3840, 2160},
    };
    const Bytes frame(12441600, 0x77);
    const auto expectAllRefused = [&] {
        for (const Case& wrong : Cases) {
            EXPECT_EQ(file.PublishFrame(frame.data(), wrong.size, wrong.width, wrong.height), E_INVALIDARG)
                << wrong.size << " bytes of " << wrong.width << " x " << wrong.height;
        }
        EXPECT_EQ(file.PublishFrame(nullptr, 1382400, 1280, 720), E_INVALIDARG);
        EXPECT_EQ(file.PublishFrame(nullptr, 3110400, 1920, 1080), E_INVALIDARG);
    };
    expectAllRefused();
    EXPECT_FALSE(fs::exists(dataFolder)) << "a refused frame must not open the file";

    ASSERT_EQ(PublishPattern(file, 2), S_OK);
    const Bytes bytes = ReadFileBytes(path);
    expectAllRefused();
    EXPECT_EQ(ReadFileBytes(path), bytes);
}
TEST_F(SharedFrameFileTest, AFrameStaysPublishedForTheNextRun) {
    ASSERT_EQ(PublishPattern(file, 3), S_OK);
    file.CloseSharedFrameFile();
    const Bytes bytes = ReadFileBytes(path);
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    EXPECT_EQ(ReadFileBytes(path), bytes);
    EXPECT_EQ(Load32(bytes, 8), 1920U);
}

} // namespace
} // namespace receiver
