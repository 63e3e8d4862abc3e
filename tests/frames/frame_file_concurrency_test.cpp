// Readers and writers of the shared frame file at the same time, over plain memory.
#include "frames/frame_file.h"

#include "tests/frames/frame_pattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace receiver {
namespace {

std::unique_ptr<FrameFileLayout> MakeFile() {
    auto file = std::make_unique<FrameFileLayout>();
    ResetFrameFile(*file);
    return file;
}

void Publish(FrameFileLayout& file, std::uint32_t number) {
    const PatternSize size = SizeOfPattern(number);
    std::uint8_t* const buffer = BeginFrame(file, size.width, size.height);
    FillPattern(buffer, size.Bytes(), number);
    CompleteFrame(file, buffer, number);
}

// A reader by the rule: even, copy, unchanged.
class Reader {
public:
    explicit Reader(FrameFileLayout& file) : file_(file), copy_(MaxFrameSize) {}

    // One attempt; false when the rule refuses the copy.
    bool Read() {
        const std::uint64_t before = LoadSequence();
        if (before % 2 != 0) {
            ++refusals_;
            return false;
        }
        FrameFileHeader header{};
        std::memcpy(&header, &file_.header, sizeof(header));
        std::memcpy(copy_.data(), file_.buffers[header.activeBuffer == 0 ? 0 : 1], MaxFrameSize);
        std::atomic_thread_fence(std::memory_order_acquire); // the copy comes before the second look
        if (LoadSequence() != before) {
            ++refusals_;
            return false;
        }
        sequence_ = before;
        number_ = IsHeaderValid(header) ? ReadPattern(copy_.data(), header.width, header.height) : std::nullopt;
        return true;
    }

    [[nodiscard]] std::uint64_t Sequence() const { return sequence_; }
    [[nodiscard]] std::optional<std::uint32_t> Number() const { return number_; } // empty: a mixed frame
    [[nodiscard]] int Refusals() const { return refusals_; }

private:
    [[nodiscard]] std::uint64_t LoadSequence() const {
        return std::atomic_ref<std::uint64_t>(file_.header.sequence).load();
    }

    FrameFileLayout& file_;
    std::vector<std::uint8_t> copy_;
    std::uint64_t sequence_ = 0;
    std::optional<std::uint32_t> number_;
    int refusals_ = 0;
};

TEST(FrameFileConcurrency, AReaderIsRefusedUntilTheFrameIsComplete) {
    const auto file = MakeFile();
    Reader reader(*file);
    std::uint8_t* const buffer = BeginFrame(*file, 1280, 720);
    EXPECT_FALSE(reader.Read());
    FillPattern(buffer, 1382400, 2);
    EXPECT_FALSE(reader.Read());
    CompleteFrame(*file, buffer, 1);
    EXPECT_TRUE(reader.Read());
    EXPECT_EQ(reader.Number(), 2U);
}

TEST(FrameFileConcurrency, AWriterThatDiedAtAnyStepIsFollowedByAWholeFrame) {
    enum class Step { Begun, HalfCopied, Copied, IndexSwitched, Stamped };
    for (const Step step : {Step::Begun, Step::HalfCopied, Step::Copied, Step::IndexSwitched, Step::Stamped}) {
        const auto file = MakeFile();
        Publish(*file, 1);
        std::uint8_t* const buffer = BeginFrame(*file, 1280, 720);
        if (step >= Step::HalfCopied) {
            FillPattern(buffer, step == Step::HalfCopied ? 691200 : 1382400, 2);
        }
        if (step >= Step::IndexSwitched) {
            file->header.activeBuffer = 0;
        }
        if (step >= Step::Stamped) {
            file->header.timestamp = 5;
        }
        Reader reader(*file);
        EXPECT_FALSE(reader.Read());

        Publish(*file, 3);
        EXPECT_EQ(file->header.sequence, 6U);
        EXPECT_TRUE(reader.Read());
        EXPECT_EQ(reader.Number(), 3U) << "step " << static_cast<int>(step);
    }
}

// The race between writer and readers is the point of the protocol: copies that it spoiled are thrown away. That is why
// ThreadSanitizer is of no use here: it reports the race itself, whatever becomes of the copy.
TEST(FrameFileConcurrency, ReadersOfABusyFileAcceptOnlyWholeFrames) {
    constexpr int ReaderCount = 2;
    constexpr int WantedOfEachSize = 50;
    constexpr int WantedRefusals = 50;
    constexpr std::chrono::seconds Limit{120};

    struct Progress {
        std::atomic<std::uint64_t> sequence = 0; // of the newest frame that was accepted
        std::atomic<bool> done = false;
        std::string problem;
    };
    const auto file = MakeFile();
    std::array<Progress, ReaderCount> progress;
    std::atomic<bool> stop = false;
    const auto deadline = std::chrono::steady_clock::now() + Limit;

    const auto read = [&](Progress& mine) {
        Reader reader(*file);
        std::array<int, 2> accepted{};
        while (!stop) {
            if (!reader.Read()) {
                std::this_thread::yield();
                continue;
            }
            const std::uint64_t sequence = reader.Sequence();
            if (sequence == mine.sequence) {
                std::this_thread::yield();
                continue;
            }
            // The writer's frame n is the one that ends at sequence 2n.
            if (!reader.Number() || *reader.Number() != sequence / 2) {
                mine.problem = "mixed frame at sequence " + std::to_string(sequence);
                break;
            }
            mine.sequence = sequence;
            ++accepted[*reader.Number() % 2];
            if (std::min(accepted[0], accepted[1]) >= WantedOfEachSize && reader.Refusals() >= WantedRefusals) {
                mine.done = true;
            }
        }
        mine.done = true;
    };
    std::vector<std::thread> readers;
    readers.reserve(ReaderCount);
    for (Progress& mine : progress) {
        readers.emplace_back(read, std::ref(mine));
    }

    const auto all = [&](auto condition) { return std::all_of(progress.begin(), progress.end(), condition); };
    const auto isDone = [](const Progress& mine) { return mine.done.load(); };
    const auto inTime = [&] { return std::chrono::steady_clock::now() < deadline; };
    std::uint32_t number = 0;
    while (!all(isDone) && inTime()) {
        // Frames close upon one another collide with readers, the more so when the writer gives way in the middle of
        // each; then every reader gets the newest one.
        for (int burst = 0; burst < 3; ++burst) {
            const PatternSize size = SizeOfPattern(++number);
            std::uint8_t* const buffer = BeginFrame(*file, size.width, size.height);
            FillPattern(buffer, size.Bytes() / 2, number);
            std::this_thread::yield();
            FillPattern(buffer, size.Bytes(), number);
            CompleteFrame(*file, buffer, number);
        }
        const auto hasNewest = [&](const Progress& mine) {
            return mine.done || mine.sequence == std::uint64_t{2} * number;
        };
        while (!all(hasNewest) && inTime()) {
            std::this_thread::yield();
        }
    }
    EXPECT_TRUE(all(isDone)) << "the readers did not get their frames in time; frames written: " << number;
    stop = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    for (const Progress& mine : progress) {
        EXPECT_EQ(mine.problem, "");
    }
}

// Looks at nothing but the header, so often that a field stored too early or too late is met.
TEST(FrameFileConcurrency, AReaderNeverAcceptsTheHeaderOfAnotherFrame) {
    constexpr int WantedHeaders = 200000;
    constexpr std::chrono::seconds Limit{120};

    const auto file = MakeFile();
    std::atomic<bool> stop = false;
    std::atomic<int> accepted = 0;
    std::atomic<std::uint64_t> badSequence = 0;
    std::thread reader([&] {
        const std::atomic_ref<std::uint64_t> sequence(file->header.sequence);
        std::uint64_t last = 0;
        std::uint64_t idleLooks = 0;
        while (!stop) {
            const std::uint64_t before = sequence.load();
            FrameFileHeader header{};
            std::memcpy(&header, &file->header, sizeof(header));
            std::atomic_thread_fence(std::memory_order_acquire); // the copy comes before the second look
            if (before == 0 || before % 2 != 0 || sequence.load() != before) {
                continue;
            }
            const std::uint64_t number = before / 2;
            const PatternSize size = SizeOfPattern(static_cast<std::uint32_t>(number));
            if (header.width != size.width || header.height != size.height || header.stride != size.width ||
                header.frameSize != size.Bytes() || header.timestamp != number || header.activeBuffer != number % 2) {
                badSequence = before;
                break;
            }
            if (before == last) {
                if (++idleLooks % 1024 == 0) {
                    std::this_thread::yield(); // on a machine with one processor the writer needs it
                }
                continue;
            }
            last = before;
            ++accepted;
        }
    });
    const auto deadline = std::chrono::steady_clock::now() + Limit;
    std::uint32_t number = 0;
    while (accepted < WantedHeaders && badSequence == 0 && std::chrono::steady_clock::now() < deadline) {
        const PatternSize size = SizeOfPattern(++number);
        CompleteFrame(*file, BeginFrame(*file, size.width, size.height), number);
        std::this_thread::yield();
    }
    EXPECT_TRUE(accepted >= WantedHeaders || badSequence != 0) << "the reader did not get its headers in time";
    stop = true;
    reader.join();
    EXPECT_EQ(badSequence, 0U);
}

} // namespace
} // namespace receiver
