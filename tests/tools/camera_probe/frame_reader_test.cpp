// The reader for virtual cameras against real frame files.
#include "examples/camera/frame_reader.h"

#include "platform/handles.h"
#include "tests/frames/frame_pattern.h"
#include "tests/frames/shared_frame_file_pattern.h"
#include "tests/support/test_files.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace vistel {

// For messages of failed tests.
inline std::ostream& operator<<(std::ostream& stream, ReadResult result) {
    constexpr const char* Names[] = {"NewFrame", "NoNewFrame", "Busy", "NoFile", "Damaged"};
    return stream << Names[static_cast<std::size_t>(result)];
}

} // namespace vistel

namespace receiver {
namespace {

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

    ReadResult Read() { return reader.ReadNewFrame(frame); }

    // The pattern's number; 0, which no test publishes, when it is not a whole one.
    [[nodiscard]] std::uint32_t Number() const {
        return frame.nv12.size() < 8 ? 0 : ReadPattern(frame.nv12.data(), frame.width, frame.height).value_or(0);
    }

    const PrivateFolder folder;
    const std::filesystem::path path = folder.Path() / L"Vistel" / L"frame-buffer.bin";
    SharedFrameFile file;
    vistel::FrameReader reader{path.wstring()};
    vistel::Frame frame;

private:
    const VariableScope programData_{L"ProgramData", folder.Path().c_str()};
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
        EXPECT_EQ(frame.width, size.width);
        EXPECT_EQ(frame.height, size.height);
        EXPECT_EQ(frame.nv12.size(), size.Bytes());
        EXPECT_GE(frame.timestampMs, before);
        EXPECT_LE(frame.timestampMs, GetTickCount64());
        EXPECT_EQ(Read(), ReadResult::NoNewFrame);
        EXPECT_EQ(Number(), number);
    }
    EXPECT_EQ(frame.sequence, 6U);
    EXPECT_EQ(reader.RetryCount(), 0U);
}

TEST_F(FrameReaderTest, TakesTheNewestOfSeveralFrames) {
    for (const std::uint32_t number : {2U, 3U, 4U}) {
        Publish(number);
    }
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    EXPECT_EQ(Number(), 4U);
    EXPECT_EQ(frame.sequence, 6U);
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
    EXPECT_EQ(frame.sequence, 2U);

    Publish(4);
    EXPECT_EQ(Read(), ReadResult::NewFrame);
    EXPECT_EQ(frame.sequence, 6U);
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
    EXPECT_EQ(frame.sequence, 0U);

    Publish(2);
    EXPECT_EQ(Read(), ReadResult::NewFrame);
    Publish(2);
    Store(Stride, std::uint32_t{1279});
    EXPECT_EQ(Read(), ReadResult::Damaged);
}

TEST_F(FrameReaderTest, LeavesAFileOfAnotherKindOrVersionAlone) {
    Publish(2);
    Store(Version, std::uint32_t{1});
    EXPECT_EQ(Read(), ReadResult::NoFile);
    Store(Version, std::uint32_t{2});
    Store(Magic, std::uint32_t{0});
    EXPECT_EQ(Read(), ReadResult::NoFile);
    Store(Magic, std::uint32_t{0x4C545356});
    EXPECT_EQ(Read(), ReadResult::NewFrame);
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
    EXPECT_EQ(frame.sequence, 2U);
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
    EXPECT_FALSE(reader.IsContradicted(frame)) << "nothing was read yet";
    Publish(3);
    ASSERT_EQ(Read(), ReadResult::NewFrame);
    EXPECT_FALSE(reader.IsContradicted(frame));
    Publish(5);
    EXPECT_FALSE(reader.IsContradicted(frame)) << "there is a newer frame";
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
        vistel::FrameReader fresh(path.wstring());
        ASSERT_EQ(fresh.ReadNewFrame(frame), ReadResult::NewFrame);
        EXPECT_FALSE(fresh.IsContradicted(frame));
        Store(change.offset, change.value);
        EXPECT_TRUE(fresh.IsContradicted(frame)) << change.offset;
    }
}

TEST(StaleFrameTest, IsOneThatIsTooOldOrFromBeforeTheSystemsStart) {
    vistel::Frame frame;
    EXPECT_TRUE(vistel::IsStale(frame, 2000, 100)) << "no frame at all";
    frame.sequence = 2;
    frame.timestampMs = 10'000;
    EXPECT_FALSE(vistel::IsStale(frame, 2000, 10'000));
    EXPECT_FALSE(vistel::IsStale(frame, 2000, 12'000));
    EXPECT_TRUE(vistel::IsStale(frame, 2000, 12'001));
    EXPECT_TRUE(vistel::IsStale(frame, 2000, 9'999));
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
