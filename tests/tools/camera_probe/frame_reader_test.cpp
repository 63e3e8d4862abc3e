// The reader for virtual cameras against real frame files.
#include "examples/camera/frame_reader.h"

#include "platform/handles.h"
#include "tests/frames/frame_copy.h"
#include "tests/frames/frame_pattern.h"
#include "tests/frames/shared_frame_file_pattern.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace vistel {

// For messages of failed tests.
inline std::ostream& operator<<(std::ostream& stream, ReadResult result) {
    constexpr const char* Names[] = {"NewFrame", "NoNewFrame",   "Busy",   "NotWanted",
                                     "NoFile",   "OtherVersion", "Damaged"};
    return stream << Names[static_cast<std::size_t>(result)];
}

} // namespace vistel

namespace receiver {
namespace {

using vistel::PictureState;
using vistel::ReadResult;

class FrameReaderTest : public testing::Test {
protected:
    FrameReaderTest() { std::filesystem::create_directory(path.parent_path()); }

    void Publish(std::uint32_t number) { ASSERT_EQ(PublishPattern(file, number), S_OK); }

    // Overwrites a value in the file, past any mapping of it.
    template <typename Value>
    void Store(std::uint32_t offset, Value value) const {
        const UniqueFile handle(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(handle);
        OVERLAPPED place{};
        place.Offset = offset;
        DWORD count = 0;
        ASSERT_NE(WriteFile(handle.Get(), &value, sizeof(value), &count, &place), FALSE);
        ASSERT_EQ(count, sizeof(value));
    }

    ReadResult Read() { return frame.ReadFrom(reader); }
    [[nodiscard]] bool IsContradicted(const vistel::FrameReader& by) {
        return by.IsContradicted(frame.info, {frame.nv12.data(), frame.info.width});
    }

    // The pattern's number; 0, which no test publishes, when it is not a whole one.
    [[nodiscard]] std::uint32_t Number() const {
        return frame.nv12.size() < 8 ? 0
                                     : ReadPattern(frame.nv12.data(), frame.info.width, frame.info.height).value_or(0);
    }

    const PrivateFolder folder;
    const std::filesystem::path path = folder.Path() / L"Vistel" / L"frame-buffer.bin";
    const VariableScope programData{L"ProgramData", folder.Path().c_str()};
    SharedFrameFile file;
    vistel::FrameReader reader; // of the default path
    FrameCopy frame;
};

constexpr std::uint32_t Magic = 0;
constexpr std::uint32_t Version = 4;
constexpr std::uint32_t Height = 12;
constexpr std::uint32_t Stride = 16;
constexpr std::uint32_t Sequence = 24;
constexpr std::uint32_t ActiveBuffer = 32;
constexpr std::uint32_t Timestamp = 40;

TEST_F(FrameReaderTest, WaitsForAFileOfTheRightSize) {
    EXPECT_EQ(Read(), ReadResult::NoFile);
    for (const std::size_t size : {0U, 64U, 6220863U, 6220865U}) {
        WriteBytes(path, std::string(size, '\0'));
        EXPECT_EQ(Read(), ReadResult::NoFile) << size;
    }
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    EXPECT_EQ(Read(), ReadResult::NoNewFrame);
    Publish(2);
    EXPECT_EQ(Read(), ReadResult::NewFrame);
}

TEST_F(FrameReaderTest, ReadsEveryFrameOnce) {
    for (const std::uint32_t number : {2U, 3U, 5U}) {
        const std::uint64_t before = GetTickCount64();
        Publish(number);
        ASSERT_EQ(Read(), ReadResult::NewFrame);
        EXPECT_EQ(Number(), number);
        const PatternSize size = SizeOfPattern(number);
        EXPECT_EQ(frame.info.width, size.width);
        EXPECT_EQ(frame.info.height, size.height);
        EXPECT_EQ(frame.nv12.size(), size.Bytes());
        EXPECT_GE(frame.info.timestampMs, before);
        EXPECT_LE(frame.info.timestampMs, GetTickCount64());
        EXPECT_EQ(Read(), ReadResult::NoNewFrame);
        EXPECT_EQ(Number(), number);
    }
    EXPECT_EQ(frame.info.sequence, 6U);
    EXPECT_EQ(reader.RetryCount(), 0U);
}

TEST_F(FrameReaderTest, TakesTheNewestOfSeveralFrames) {
    for (const std::uint32_t number : {2U, 3U, 4U}) {
        Publish(number);
    }
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    EXPECT_EQ(Number(), 4U);
    EXPECT_EQ(frame.info.sequence, 6U);
}

TEST_F(FrameReaderTest, FindsTheFrameOfAWriterThatIsGone) {
    Publish(3);
    file.CloseSharedFrameFile();
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    EXPECT_EQ(Number(), 3U);
}

TEST_F(FrameReaderTest, GivesUpWhileAFrameIsWrittenAndKeepsTheOldOne) {
    Publish(2);
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    Store(Sequence, std::uint64_t{3});
    EXPECT_EQ(Read(), ReadResult::Busy);
    EXPECT_EQ(Read(), ReadResult::Busy);
    EXPECT_EQ(reader.RetryCount(), 8U);
    EXPECT_EQ(Number(), 2U);
    EXPECT_EQ(frame.info.sequence, 2U);

    Publish(4);
    EXPECT_EQ(Read(), ReadResult::NewFrame);
    EXPECT_EQ(frame.info.sequence, 6U);
    EXPECT_EQ(Number(), 4U);
}

TEST_F(FrameReaderTest, AnySetBufferIndexCountsAsOne) {
    Publish(2); // into buffer 1
    Store(ActiveBuffer, std::uint32_t{7});
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    EXPECT_EQ(Number(), 2U);
}

TEST_F(FrameReaderTest, TellsOnceThatAHeaderContradictsItself) {
    Publish(2);
    Store(Height, std::uint32_t{1080});
    EXPECT_EQ(Read(), ReadResult::Damaged);
    EXPECT_EQ(Read(), ReadResult::NoNewFrame);
    EXPECT_EQ(frame.info.sequence, 0U);

    Publish(2);
    EXPECT_EQ(Read(), ReadResult::NewFrame);
    Publish(2);
    Store(Stride, std::uint32_t{1279});
    EXPECT_EQ(Read(), ReadResult::Damaged);
}

TEST_F(FrameReaderTest, TellsOnceThatAFileIsOfAnotherKindOrVersion) {
    Publish(2);
    Store(Version, std::uint32_t{1});
    EXPECT_EQ(Read(), ReadResult::OtherVersion);
    Store(Version, std::uint32_t{2});
    EXPECT_EQ(Read(), ReadResult::NoNewFrame) << "the sequence is that of the refused header";
    Publish(2);
    Store(Magic, std::uint32_t{0});
    EXPECT_EQ(Read(), ReadResult::OtherVersion);
    EXPECT_EQ(Read(), ReadResult::NoNewFrame);
    Store(Magic, std::uint32_t{0x4C545356});
    Publish(3);
    EXPECT_EQ(Read(), ReadResult::NewFrame);
}

TEST_F(FrameReaderTest, OffersAFrameAgainThatWasNotWanted) {
    Publish(3);
    std::uint32_t offeredHeight = 0;
    const auto refuse = [&](std::uint32_t, std::uint32_t height) {
        offeredHeight = height;
        return vistel::Destination{nullptr, 0};
    };
    EXPECT_EQ(reader.Read(frame.info, refuse), ReadResult::NotWanted);
    EXPECT_EQ(offeredHeight, 1080U);
    EXPECT_EQ(frame.info.sequence, 0U);
    EXPECT_EQ(Read(), ReadResult::NewFrame);
    EXPECT_EQ(reader.Read(frame.info, refuse), ReadResult::NoNewFrame);
}

TEST_F(FrameReaderTest, CopiesRowsWithTheCallersPitchAndTouchesNothingElse) {
    constexpr std::size_t Pitch = 1280 + 64;
    constexpr std::size_t Rows = 720 * 3 / 2;
    Publish(2);
    std::vector<std::uint8_t> picture(Pitch * Rows, 0xA5);
    ASSERT_EQ(reader.Read(frame.info,
                          [&](std::uint32_t, std::uint32_t) {
                              return vistel::Destination{picture.data(), Pitch};
                          }),
              ReadResult::NewFrame);
    std::vector<std::uint8_t> rows;
    for (std::size_t y = 0; y < Rows; ++y) {
        const auto row = picture.begin() + static_cast<std::ptrdiff_t>(y * Pitch);
        rows.insert(rows.end(), row, row + 1280);
        EXPECT_EQ(std::count(row + 1280, row + Pitch, 0xA5), 64) << y;
    }
    EXPECT_EQ(ReadPattern(rows.data(), 1280, 720), 2U);
    EXPECT_FALSE(reader.IsContradicted(frame.info, {picture.data(), Pitch}));
    picture[Pitch * (Rows - 1) + 1279] ^= 1U;
    EXPECT_TRUE(reader.IsContradicted(frame.info, {picture.data(), Pitch}));
}

TEST_F(FrameReaderTest, SaysWhyThereIsNoPicture) {
    EXPECT_EQ(reader.State(), PictureState::Missing);
    EXPECT_EQ(Read(), ReadResult::NoFile);
    EXPECT_EQ(reader.State(), PictureState::Missing);
    EXPECT_EQ(reader.SystemError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));

    WriteBytes(path, "too short");
    EXPECT_EQ(Read(), ReadResult::NoFile);
    EXPECT_EQ(reader.State(), PictureState::WrongSize);
    EXPECT_EQ(reader.SystemError(), 0U);

    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK);
    EXPECT_EQ(Read(), ReadResult::NoNewFrame);
    EXPECT_EQ(reader.State(), PictureState::NoFrameYet);

    Publish(2);
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    EXPECT_EQ(reader.State(frame.info.timestampMs + 2000), PictureState::Live);
    EXPECT_EQ(reader.State(frame.info.timestampMs + 2001), PictureState::Stale);

    Publish(2);
    Store(Version, std::uint32_t{3});
    ASSERT_EQ(Read(), ReadResult::OtherVersion);
    EXPECT_EQ(reader.State(frame.info.timestampMs), PictureState::Live)
        << "the last good frame is shown until it is stale";
    EXPECT_EQ(reader.State(frame.info.timestampMs + 2001), PictureState::OtherVersion);

    Store(Version, std::uint32_t{2});
    Publish(2);
    Store(Height, std::uint32_t{1080});
    ASSERT_EQ(Read(), ReadResult::Damaged);
    EXPECT_EQ(reader.State(frame.info.timestampMs + 2001), PictureState::Damaged);
}

TEST_F(FrameReaderTest, TellsTheSystemsErrorWhenAFileCannotBeOpened) {
    struct Case {
        std::wstring path;
        DWORD error;
        PictureState state;
    };
    const UniqueFile locked(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(locked);
    for (const Case& bad :
         {Case{folder.Path().wstring() + L"\\none\\file", ERROR_PATH_NOT_FOUND, PictureState::Missing},
          Case{folder.Path().wstring(), ERROR_ACCESS_DENIED, PictureState::Denied}, // a folder
          Case{path.wstring(), ERROR_SHARING_VIOLATION, PictureState::Failed},
          Case{std::wstring(1024, L'x'), ERROR_FILENAME_EXCED_RANGE, PictureState::Failed}}) {
        vistel::FrameReader other(bad.path.c_str());
        EXPECT_EQ(frame.ReadFrom(other), ReadResult::NoFile);
        EXPECT_EQ(other.State(), bad.state) << bad.error;
        EXPECT_EQ(other.SystemError(), bad.error);
    }
}

// Reads until a frame comes that is not the one before. The reader looks once a second for another file.
TEST_F(FrameReaderTest, OpensTheNewFileWhenTheFileWasReplaced) {
    Publish(2);
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    file.CloseSharedFrameFile();
    std::filesystem::rename(path, folder.Path() / L"old.bin");
    Publish(3);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (Read() != ReadResult::NewFrame && std::chrono::steady_clock::now() < end) {
        Sleep(1);
    }
    EXPECT_EQ(Number(), 3U) << "the same sequence in another file";
    EXPECT_EQ(frame.info.sequence, 2U);
}

TEST_F(FrameReaderTest, NoticesThatTheFileWasRemoved) {
    Publish(2);
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    file.CloseSharedFrameFile();
    std::filesystem::rename(path, folder.Path() / L"old.bin");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (Read() != ReadResult::NoFile && std::chrono::steady_clock::now() < end) {
        Sleep(1);
    }
    EXPECT_EQ(reader.State(frame.info.timestampMs + 2001), PictureState::Missing);
}

TEST_F(FrameReaderTest, FollowsAFileThatIsStartedAnew) {
    Publish(2);
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    file.CloseSharedFrameFile();
    Store(Version, std::uint32_t{1});
    ASSERT_EQ(file.OpenSharedFrameFile(), S_OK); // resets the file
    EXPECT_EQ(Read(), ReadResult::NoNewFrame);
    Publish(3);
    ASSERT_EQ(Read(), ReadResult::NewFrame) << "the same sequence as that of the last frame, but another frame";
    EXPECT_EQ(frame.info.sequence, 2U);
    EXPECT_EQ(Number(), 3U);
}

TEST_F(FrameReaderTest, DoesNotHinderAWriterThatOpensTheFileAgain) {
    Publish(2);
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    file.CloseSharedFrameFile();
    Publish(3);
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    EXPECT_EQ(Number(), 3U);
}

TEST_F(FrameReaderTest, AStandingFrameIsNotContradicted) {
    EXPECT_FALSE(IsContradicted(reader)) << "nothing was read yet";
    Publish(3);
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    EXPECT_FALSE(IsContradicted(reader));
    Publish(5);
    EXPECT_FALSE(IsContradicted(reader)) << "there is a newer frame";
}

TEST_F(FrameReaderTest, AnyChangeUnderTheSameSequenceContradictsTheFrame) {
    struct Change {
        std::uint32_t offset;
        std::uint8_t value;
    };
    constexpr std::uint32_t Buffer = 3110464;
    for (const Change& change : {Change{Buffer, 0xEE}, Change{Buffer + 1382399, 0xEE}, Change{ActiveBuffer, 0},
                                 Change{Height, 0xEE}, Change{Timestamp + 7, 0xEE}}) {
        SharedFrameFile writer;
        std::filesystem::remove(path);
        ASSERT_EQ(PublishPattern(writer, 2), S_OK); // into buffer 1
        vistel::FrameReader fresh(path.c_str());
        ASSERT_EQ(frame.ReadFrom(fresh), ReadResult::NewFrame);
        EXPECT_FALSE(IsContradicted(fresh));
        Store(change.offset, change.value);
        EXPECT_TRUE(IsContradicted(fresh)) << change.offset;
    }
}

TEST(StaleFrameTest, IsOneThatIsTooOldOrFromBeforeTheSystemsStart) {
    vistel::FrameInfo frame;
    EXPECT_TRUE(vistel::IsStale(frame, 2000, 100)) << "no frame at all";
    frame.sequence = 2;
    frame.timestampMs = 10'000;
    EXPECT_FALSE(vistel::IsStale(frame, 2000, 10'000));
    EXPECT_FALSE(vistel::IsStale(frame, 2000, 12'000));
    EXPECT_TRUE(vistel::IsStale(frame, 2000, 12'001));
    EXPECT_TRUE(vistel::IsStale(frame, 2000, 9'999));
}

TEST(DefaultPathTest, FollowsProgramDataAsTheReceiverDoes) {
    {
        const VariableScope unset(L"ProgramData", nullptr);
        EXPECT_STREQ(vistel::DefaultPath().text, L"C:\\ProgramData\\Vistel\\frame-buffer.bin");
    }
    const std::wstring longest(259, L'x');
    {
        const VariableScope set(L"ProgramData", longest.c_str());
        EXPECT_EQ(vistel::DefaultPath().text, longest + L"\\Vistel\\frame-buffer.bin");
    }
    const VariableScope tooLong(L"ProgramData", (longest + L'x').c_str());
    EXPECT_STREQ(vistel::DefaultPath().text, L"C:\\ProgramData\\Vistel\\frame-buffer.bin");
}

TEST(PictureStateTest, EachHasATextOfItsOwn) {
    std::set<std::string> texts;
    for (int state = 0; state <= static_cast<int>(PictureState::Failed); ++state) {
        texts.insert(vistel::Text(static_cast<PictureState>(state)));
    }
    EXPECT_EQ(texts.size(), 9U);
}

class UsageSignalTest : public testing::Test {
protected:
    const std::wstring name = L"Local\\usage-signal-test-" + std::to_wstring(GetCurrentProcessId());
};

TEST_F(UsageSignalTest, MakesAnEventThatTheReceiverCanOpenAndEachSignalIsForOneWait) {
    const vistel::UsageSignal signal(name.c_str());
    ASSERT_TRUE(signal.IsOpen());
    // As the receiver asks for it, with every right.
    const UniqueHandle event(CreateEventW(nullptr, FALSE, FALSE, name.c_str()));
    ASSERT_TRUE(event);
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_TIMEOUT);
    signal.Signal();
    signal.Signal();
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_TIMEOUT);

    DWORD size = 0;
    GetKernelObjectSecurity(event.Get(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    std::vector<std::uint8_t> descriptor(size);
    ASSERT_NE(GetKernelObjectSecurity(event.Get(), DACL_SECURITY_INFORMATION, descriptor.data(), size, &size), FALSE);
    LPWSTR text = nullptr;
    ASSERT_NE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), SDDL_REVISION_1,
                                                                   DACL_SECURITY_INFORMATION, &text, nullptr),
              FALSE);
    const std::wstring dacl = text;
    LocalFree(text);
    EXPECT_NE(dacl.find(L";;;IU)"), std::wstring::npos) << "the user's receiver is shut out";
    EXPECT_NE(dacl.find(L";;;LS)"), std::wstring::npos) << "the camera's service is shut out";
}

TEST_F(UsageSignalTest, SignalsTheReceiversEventAndNothingWithoutOne) {
    const UniqueHandle event(CreateEventW(nullptr, FALSE, FALSE, name.c_str()));
    const vistel::UsageSignal signal(name.c_str());
    ASSERT_TRUE(signal.IsOpen());
    signal.Signal();
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_OBJECT_0);

    const std::wstring taken = name + L"-mutex";
    const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, taken.c_str()));
    const vistel::UsageSignal none(taken.c_str());
    EXPECT_FALSE(none.IsOpen());
    none.Signal();
}

} // namespace
} // namespace receiver
