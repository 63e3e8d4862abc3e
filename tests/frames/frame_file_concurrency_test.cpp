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

// A reader that follows the protocol: sequence even, copy, sequence unchanged.
class Reader {
public:
    explicit Reader(FrameFileLayout& file) : layout(file), copy(MaxFrameSize) {}

    // One attempt; false when the copy must be rejected.
    bool Read() {
        const std::uint64_t before = LoadSequence();
        if (before % 2 != 0) {
            ++rejections;
            return false;
        }
        FrameFileHeader header{};
        std::memcpy(&header, &layout.header, sizeof(header));
        std::memcpy(copy.data(), layout.buffers[header.activeBuffer == 0 ? 0 : 1], MaxFrameSize);
        std::atomic_thread_fence(std::memory_order_acquire); // the copy comes before the second load
        if (LoadSequence() != before) {
            ++rejections;
            return false;
        }
        sequence = before;
        number = IsHeaderValid(header) ? ReadPattern(copy.data(), header.width, header.height) : std::nullopt;
        return true;
    }

    [[nodiscard]] std::uint64_t Sequence() const { return sequence; }
    [[nodiscard]] std::optional<std::uint32_t> Number() const { return number; } // empty for a frame mixed from two
    [[nodiscard]] int Rejections() const { return rejections; }

private:
    [[nodiscard]] std::uint64_t LoadSequence() const {
        return std::atomic_ref<std::uint64_t>(layout.header.sequence).load();
    }

    FrameFileLayout& layout;
    std::vector<std::uint8_t> copy;
    std::uint64_t sequence = 0;
    std::optional<std::uint32_t> number;
    int rejections = 0;
};

TEST(FrameFileConcurrency, AReaderAcceptsNothingUntilTheFrameIsComplete) {
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

TEST(FrameFileConcurrency, AfterAWriterEndedAtAnyStepTheNextFrameIsWhole) {
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

// Writer and readers race by design: a copy made during a write is rejected. ThreadSanitizer cannot be used here, since
// it reports the race itself, also when the copy is rejected.
TEST(FrameFileConcurrency, ReadersOfABusyFileAcceptOnlyWholeFrames) {
    constexpr int ReaderCount = 2;
    constexpr int WantedOfEachSize = 50;
    constexpr int WantedRejections = 50;
    constexpr std::chrono::seconds Limit{240};

    struct Progress {
        std::atomic<std::uint64_t> sequence = 0; // of the newest frame that was accepted
        std::atomic<bool> done = false;
        std::string problem;
    };
    const auto file = MakeFile();
    std::array<Progress, ReaderCount> progress;
    std::atomic<bool> stop = false;
    const auto deadline = std::chrono::steady_clock::now() + Limit;

    const auto read = [&](Progress& own) {
        Reader reader(*file);
        std::array<int, 2> accepted{};
        while (!stop) {
            if (!reader.Read()) {
                std::this_thread::yield();
                continue;
            }
            const std::uint64_t sequence = reader.Sequence();
            if (sequence == own.sequence) {
                std::this_thread::yield();
                continue;
            }
            // Frame n ends at sequence 2n.
            if (!reader.Number() || *reader.Number() != sequence / 2) {
                own.problem = "mixed frame at sequence " + std::to_string(sequence);
                break;
            }
            own.sequence = sequence;
            ++accepted[*reader.Number() % 2];
            if (std::min(accepted[0], accepted[1]) >= WantedOfEachSize && reader.Rejections() >= WantedRejections) {
                own.done = true;
            }
        }
        own.done = true;
    };
    std::vector<std::thread> readers;
    readers.reserve(ReaderCount);
    for (Progress& own : progress) {
        readers.emplace_back(read, std::ref(own));
    }

    const auto all = [&](auto condition) { return std::all_of(progress.begin(), progress.end(), condition); };
    const auto isDone = [](const Progress& own) { return own.done.load(); };
    const auto inTime = [&] { return std::chrono::steady_clock::now() < deadline; };
    std::uint32_t number = 0;
    while (!all(isDone) && inTime()) {
        // A burst of frames, with a yield in the middle of each, makes readers meet a write; after the burst every
        // reader waits for the newest frame.
        for (int burst = 0; burst < 3; ++burst) {
            const PatternSize size = SizeOfPattern(++number);
            std::uint8_t* const buffer = BeginFrame(*file, size.width, size.height);
            FillPattern(buffer, size.Bytes() / 2, number);
            std::this_thread::yield();
            FillPattern(buffer, size.Bytes(), number);
            CompleteFrame(*file, buffer, number);
        }
        const auto hasNewest = [&](const Progress& own) {
            return own.done || own.sequence == std::uint64_t{2} * number;
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
    for (const Progress& own : progress) {
        EXPECT_EQ(own.problem, "");
    }
}

// Reads only the header, so often that a field stored too early or too late is found. Where both threads share one
// processor, each reads or writes for a whole time slice: that is ended earlier.
TEST(FrameFileConcurrency, AReaderNeverAcceptsTheHeaderOfAnotherFrame) {
    constexpr int WantedHeaders = 200000;
    constexpr int FewestHeaders = 500;
    constexpr std::uint32_t EnoughFrames = 5000000;
    constexpr std::uint32_t FramesOfATurn = 16; // so many that a reader on another processor meets many writes
    constexpr std::chrono::seconds Limit{240};

    const auto file = MakeFile();
    std::atomic<bool> stop = false;
    std::atomic<int> accepted = 0;
    std::atomic<std::uint64_t> badSequence = 0;
    std::thread reader([&] {
        const std::atomic_ref<std::uint64_t> sequence(file->header.sequence);
        std::uint64_t last = 0;
        std::uint64_t repeatedReads = 0;
        while (!stop) {
            const std::uint64_t before = sequence.load();
            FrameFileHeader header{};
            std::memcpy(&header, &file->header, sizeof(header));
            std::atomic_thread_fence(std::memory_order_acquire); // the copy comes before the second load
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
                if (++repeatedReads % 1024 == 0) {
                    std::this_thread::yield(); // lets the writer run on a machine with one processor
                }
                continue;
            }
            last = before;
            ++accepted;
        }
    });
    const auto deadline = std::chrono::steady_clock::now() + Limit;
    std::uint32_t number = 0;
    const auto isEnough = [&] {
        return accepted >= WantedHeaders || (accepted >= FewestHeaders && number >= EnoughFrames) || badSequence != 0;
    };
    while (!isEnough() && std::chrono::steady_clock::now() < deadline) {
        const PatternSize size = SizeOfPattern(++number);
        CompleteFrame(*file, BeginFrame(*file, size.width, size.height), number);
        if (number % FramesOfATurn == 0) {
            std::this_thread::yield(); // Each yield may cost a time slice of other programs.
        }
    }
    EXPECT_TRUE(isEnough()) << "the reader did not get its headers in time";
    stop = true;
    reader.join();
    EXPECT_EQ(badSequence, 0U);
}

} // namespace
} // namespace receiver
