// Writers and readers of the shared frame file as processes of their own.
#include "examples/camera/frame_reader.h"
#include "frames/shared_frame_file.h"
#include "tests/frames/frame_file_process.h"
#include "tests/frames/frame_pattern.h"
#include "tests/frames/shared_frame_file_pattern.h"
#include "tests/support/test_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace receiver {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds Limit = 100s;

class FrameFileProcesses : public testing::Test {
protected:
    ChildProcess Start(const std::wstring& arguments) {
        return {BuiltProgram(VISTEL_FRAME_FILE_STRESS), arguments,
                folder_.Path() / (L"output-" + std::to_wstring(++started_) + L".txt")};
    }

    std::vector<ChildProcess> StartReaders(int count, const std::wstring& arguments) {
        std::vector<ChildProcess> readers;
        for (int i = 0; i < count; ++i) {
            readers.push_back(Start(L"reader " + arguments));
        }
        return readers;
    }

    [[nodiscard]] std::filesystem::path FramePath() const { return folder_.Path() / L"Vistel" / L"frame-buffer.bin"; }

private:
    const PrivateFolder folder_;
    const VariableScope programData_{L"ProgramData", folder_.Path().c_str()};
    int started_ = 0;
};

TEST_F(FrameFileProcesses, ReadersOfABusyWriterAcceptOnlyWholeFrames) {
    std::vector<ChildProcess> readers = StartReaders(3, L"30 20");
    ChildProcess writer = Start(L"writer 1");
    const auto deadline = std::chrono::steady_clock::now() + Limit;
    for (const ChildProcess& reader : readers) {
        const auto left = std::max(deadline - std::chrono::steady_clock::now(), std::chrono::steady_clock::duration{});
        EXPECT_EQ(reader.WaitForExit(std::chrono::duration_cast<std::chrono::milliseconds>(left)), 0U)
            << reader.Output();
    }
    EXPECT_TRUE(writer.IsRunning()) << writer.Output();
    writer.Stop();
    EXPECT_EQ(writer.WaitForExit(Limit), 0U) << writer.Output();
}

TEST_F(FrameFileProcesses, AWriterKilledInTheMiddleOfAFrameIsFollowedByOneThatRecovers) {
    // Pattern 4 is a small frame: nothing of it copied, one page, half of it, all but its last page.
    for (const std::uint32_t copied : {0U, 4096U, 692224U, 1380352U}) {
        std::filesystem::remove(FramePath());
        SharedFrameFile file;
        for (const std::uint32_t number : {1U, 2U, 3U}) {
            ASSERT_EQ(PublishPattern(file, number), S_OK);
        }
        file.CloseSharedFrameFile();
        vistel::FrameReader reader(FramePath());
        vistel::Frame frame;
        ASSERT_EQ(reader.ReadNewFrame(frame), vistel::ReadResult::NewFrame);
        EXPECT_EQ(frame.sequence, 6U);

        const ChildProcess writer = Start(L"doomed 4 0 " + std::to_wstring(copied));
        ASSERT_EQ(writer.WaitForExit(Limit), 77U) << writer.Output();
        EXPECT_EQ(reader.ReadNewFrame(frame), vistel::ReadResult::Busy) << "the sequence is not odd";
        EXPECT_EQ(frame.sequence, 6U);

        ASSERT_EQ(PublishPattern(file, 5), S_OK);
        ASSERT_EQ(reader.ReadNewFrame(frame), vistel::ReadResult::NewFrame);
        EXPECT_EQ(frame.sequence, 10U);
        EXPECT_EQ(ReadPattern(frame.nv12.data(), frame.width, frame.height), 5U);
    }
}

TEST_F(FrameFileProcesses, ReadersOfOneDyingWriterAfterAnotherAcceptOnlyWholeFrames) {
    constexpr std::uint32_t FramesPerWriter = 16;
    constexpr std::uint32_t PageSize = 4096;

    const std::vector<ChildProcess> readers = StartReaders(2, L"40 20");
    const auto anyRuns = [&] {
        return std::any_of(readers.begin(), readers.end(),
                           [](const ChildProcess& reader) { return reader.IsRunning(); });
    };
    const auto deadline = std::chrono::steady_clock::now() + Limit;
    std::uint32_t number = 1;
    for (std::uint32_t writers = 0; writers < 3 || anyRuns(); ++writers) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the readers did not get their frames in time";
        const std::uint32_t copied = writers * 37 % (1382400 / PageSize) * PageSize;
        const ChildProcess writer = Start(L"doomed " + std::to_wstring(number) + L' ' +
                                          std::to_wstring(FramesPerWriter) + L' ' + std::to_wstring(copied));
        ASSERT_EQ(writer.WaitForExit(Limit), 77U) << writer.Output();
        number += FramesPerWriter + 1; // the unfinished frame has used up a number too
    }
    for (const ChildProcess& reader : readers) {
        EXPECT_EQ(reader.WaitForExit(Limit), 0U) << reader.Output();
    }
}

} // namespace
} // namespace receiver
