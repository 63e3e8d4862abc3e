// Writers and readers of the shared frame file in separate processes. VISTEL_STRESS_FRAMES sets the number of frames of
// the busy writer, VISTEL_STRESS_KILLS the number of killed writers, VISTEL_STRESS_SEED the random moments of the
// kills.
#include "examples/camera/frame_reader.h"
#include "frames/shared_frame_file.h"
#include "platform/environment_variable.h"
#include "tests/frames/frame_copy.h"
#include "tests/frames/frame_file_process.h"
#include "tests/frames/frame_pattern.h"
#include "tests/frames/shared_frame_file_pattern.h"
#include "tests/support/test_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace receiver {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds Limit = 100s;

// The environment variable's number, or `usual` when it is not set.
std::uint32_t Amount(const wchar_t* variable, std::uint32_t usual) {
    const std::optional<std::wstring> value = ReadEnvironmentVariable(variable);
    return value ? static_cast<std::uint32_t>(std::stoul(*value)) : usual;
}

class FrameFileProcesses : public testing::Test {
protected:
    ChildProcess Start(const std::wstring& arguments) {
        return {BuiltProgram(VISTEL_FRAME_FILE_STRESS), arguments,
                folder.Path() / (L"output-" + std::to_wstring(++started) + L".txt")};
    }

    // Two that read without a pause and two that read as cameras of 60 and 30 frames per second do.
    std::vector<ChildProcess> StartReaders(const std::wstring& wanted) {
        std::vector<ChildProcess> readers;
        for (const wchar_t* const pauseMs : {L" 0", L" 0", L" 16", L" 33"}) {
            readers.push_back(Start(L"reader " + wanted + pauseMs));
        }
        return readers;
    }

    static void Stop(std::vector<ChildProcess>& readers) {
        std::for_each(readers.begin(), readers.end(), [](ChildProcess& reader) { reader.Stop(); });
    }

    [[nodiscard]] static bool AnyRuns(const std::vector<ChildProcess>& readers) {
        return std::any_of(readers.begin(), readers.end(),
                           [](const ChildProcess& reader) { return reader.IsRunning(); });
    }

    static void ExpectDone(const ChildProcess& process) {
        EXPECT_EQ(process.WaitForExit(Limit), 0U);
        std::printf("%s", process.Output().c_str());
    }

    // Of the file; 0 while there is none.
    [[nodiscard]] std::uint64_t Sequence() const {
        std::uint64_t sequence = 0;
        std::ifstream file(FramePath(), std::ios::binary);
        file.seekg(offsetof(FrameFileHeader, sequence));
        file.read(reinterpret_cast<char*>(&sequence), sizeof(sequence));
        return sequence;
    }

    // The number of the next frame. Frame n ends at sequence 2n; an unfinished frame also counts.
    [[nodiscard]] static std::uint32_t NextNumber(std::uint64_t sequence) {
        return static_cast<std::uint32_t>((sequence + 1) / 2 + 1);
    }

    // False when the writer ends or makes no progress before the sequence reaches `wanted`.
    [[nodiscard]] bool WaitForSequence(const ChildProcess& writer, std::uint64_t wanted) const {
        std::uint64_t last = 0;
        auto deadline = std::chrono::steady_clock::now() + Limit;
        for (std::uint64_t sequence = Sequence(); sequence < wanted; sequence = Sequence()) {
            const auto now = std::chrono::steady_clock::now();
            if (sequence != last) {
                last = sequence;
                deadline = now + Limit;
            }
            if (now > deadline || writer.WaitForExit(1ms)) {
                return false;
            }
        }
        return true;
    }

    [[nodiscard]] std::filesystem::path FramePath() const { return folder.Path() / L"Vistel" / L"frame-buffer.bin"; }

private:
    const PrivateFolder folder;
    const VariableScope programData{L"ProgramData", folder.Path().c_str()};
    int started = 0;
};

TEST_F(FrameFileProcesses, ReadersOfABusyWriterAcceptOnlyWholeFrames) {
    std::vector<ChildProcess> readers = StartReaders(L"30 20");
    ChildProcess writer = Start(L"writer 1");
    EXPECT_TRUE(WaitForSequence(writer, std::uint64_t{2} * Amount(L"VISTEL_STRESS_FRAMES", 5000))) << writer.Output();
    Stop(readers);
    std::for_each(readers.begin(), readers.end(), ExpectDone);
    writer.Stop();
    ExpectDone(writer);
}

TEST_F(FrameFileProcesses, AfterAWriterEndedInsideAFrameTheNextOneRecovers) {
    // Pattern 4 is a small frame. Copied of it: nothing, one page, half of it, all but its last page.
    for (const std::uint32_t copied : {0U, 4096U, 692224U, 1380352U}) {
        std::filesystem::remove(FramePath());
        SharedFrameFile file;
        for (const std::uint32_t number : {1U, 2U, 3U}) {
            ASSERT_EQ(PublishPattern(file, number), S_OK);
        }
        file.CloseSharedFrameFile();
        vistel::FrameReader reader(FramePath().c_str());
        FrameCopy frame;
        ASSERT_EQ(frame.ReadFrom(reader), vistel::ReadResult::NewFrame);
        EXPECT_EQ(frame.info.sequence, 6U);

        const ChildProcess writer = Start(L"crasher 4 0 " + std::to_wstring(copied));
        ASSERT_EQ(writer.WaitForExit(Limit), 77U) << writer.Output();
        EXPECT_EQ(frame.ReadFrom(reader), vistel::ReadResult::Busy) << "the sequence is not odd";
        EXPECT_EQ(frame.info.sequence, 6U);

        ASSERT_EQ(PublishPattern(file, 5), S_OK);
        ASSERT_EQ(frame.ReadFrom(reader), vistel::ReadResult::NewFrame);
        EXPECT_EQ(frame.info.sequence, 10U);
        EXPECT_EQ(ReadPattern(frame.nv12.data(), frame.info.width, frame.info.height), 5U);
    }
}

TEST_F(FrameFileProcesses, ReadersOfWritersThatEndInsideFramesAcceptOnlyWholeFrames) {
    constexpr std::uint32_t FramesPerWriter = 16;
    constexpr std::uint32_t PageSize = 4096;

    std::vector<ChildProcess> readers = StartReaders(L"10 20");
    Stop(readers);
    std::uint32_t number = 1;
    for (std::uint32_t writers = 0; writers < 3 || AnyRuns(readers); ++writers) {
        const std::uint32_t copied = writers * 37 % (1382400 / PageSize) * PageSize;
        const ChildProcess writer = Start(L"crasher " + std::to_wstring(number) + L' ' +
                                          std::to_wstring(FramesPerWriter) + L' ' + std::to_wstring(copied));
        ASSERT_EQ(writer.WaitForExit(Limit), 77U) << writer.Output();
        number += FramesPerWriter + 1; // The unfinished frame counts, too.
    }
    std::for_each(readers.begin(), readers.end(), ExpectDone);
}

TEST_F(FrameFileProcesses, AfterAWriterKilledAtAnyMomentTheNextOneRecovers) {
    const std::uint32_t wantedKills = Amount(L"VISTEL_STRESS_KILLS", 30);
    const std::uint32_t seed = Amount(L"VISTEL_STRESS_SEED", std::random_device{}());
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    std::uniform_int_distribution delayUs(0, 2000); // from the start of its first frame to within its first pause

    std::vector<ChildProcess> readers = StartReaders(L"10 20");
    std::uint32_t kills = 0;
    std::uint32_t unfinished = 0; // kills inside a frame; a minimum of these is required
    const auto tooFewUnfinished = [&] { return unfinished < wantedKills / 8; };
    while (kills < wantedKills || (tooFewUnfinished() && kills < 10 * wantedKills) || AnyRuns(readers)) {
        if (kills == wantedKills) {
            Stop(readers);
        }
        const std::uint64_t before = Sequence();
        ChildProcess writer = Start(L"writer " + std::to_wstring(NextNumber(before)));
        ASSERT_TRUE(WaitForSequence(writer, before + 1)) << writer.Output();
        const auto moment = std::chrono::steady_clock::now() + std::chrono::microseconds(delayUs(random));
        while (std::chrono::steady_clock::now() < moment) {
        }
        writer.Kill();
        ++kills;
        if (Sequence() % 2 != 0) {
            ++unfinished;
        }
    }
    std::printf("%u writers killed, %u of them inside a frame\n", kills, unfinished);
    EXPECT_FALSE(tooFewUnfinished());
    std::for_each(readers.begin(), readers.end(), ExpectDone);

    SharedFrameFile file;
    const std::uint32_t number = NextNumber(Sequence());
    ASSERT_EQ(PublishPattern(file, number), S_OK);
    EXPECT_EQ(Sequence(), std::uint64_t{2} * number);
    vistel::FrameReader reader(FramePath().c_str());
    FrameCopy frame;
    ASSERT_EQ(frame.ReadFrom(reader), vistel::ReadResult::NewFrame);
    EXPECT_EQ(ReadPattern(frame.nv12.data(), frame.info.width, frame.info.height), number);
}

} // namespace
} // namespace receiver
