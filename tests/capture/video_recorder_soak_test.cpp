// A long recording by the recorder alone, into a real file: no sample is lost and memory does not grow.
// VISTEL_SOAK_SECONDS is the length of the video; the test sets the clock, so that it runs as fast as the encoder.
// It prints what the process held during the recording, to which recorder_command.mjs fits a slope.
#include "capture/video_recorder.h"

#include "platform/environment_variable.h"
#include "tests/capture/capture_folders.h"
#include "tests/support/apartment.h"
#include "tests/support/function_patch.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <psapi.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace receiver {
namespace {

constexpr std::uint32_t Width = 1280;
constexpr std::uint32_t Height = 720;
constexpr std::uint64_t FramesPerSecond = 30;
constexpr std::uint64_t WarmUpFrames = 10 * FramesPerSecond;
constexpr std::uint64_t LookCount = 60;
constexpr SIZE_T MemoryAllowance = SIZE_T{1} << 20; // less than one frame

SIZE_T CommittedBytes() {
    PROCESS_MEMORY_COUNTERS memory{};
    EXPECT_TRUE(GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory)));
    return memory.PagefileUsage;
}

// What is allocated from the heaps of the process: unlike the committed bytes, no pages that a heap keeps for later.
SIZE_T AllocatedBytes() {
    std::array<HANDLE, 32> heaps{};
    const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    EXPECT_LE(count, heaps.size());
    SIZE_T bytes = 0;
    for (DWORD i = 0; i < count && i < heaps.size(); ++i) {
        EXPECT_TRUE(HeapLock(heaps[i]));
        PROCESS_HEAP_ENTRY entry{};
        while (HeapWalk(heaps[i], &entry)) {
            bytes += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? entry.cbData : 0;
        }
        EXPECT_TRUE(HeapUnlock(heaps[i]));
    }
    return bytes;
}

struct Look {
    std::uint64_t frames;
    SIZE_T committedBytes;
    SIZE_T allocatedBytes;
};

std::uint64_t FrameCount() {
    return FramesPerSecond * std::stoull(ReadEnvironmentVariable(L"VISTEL_SOAK_SECONDS").value_or(L"20"));
}

// The times of the frames in the finished file, from the test encoder's report on a recording.
std::vector<std::int64_t> FrameTimes(const std::string& account) {
    constexpr std::string_view key = "\"frameTimes\":[";
    std::vector<std::int64_t> times;
    const std::size_t at = account.find(key);
    if (at != std::string::npos) {
        char* next = nullptr;
        for (const char* text = account.c_str() + at + key.size(); *text != '\0' && *text != ']'; text = next + 1) {
            times.push_back(std::strtoll(text, &next, 10));
            if (*next != ',') {
                break;
            }
        }
    }
    return times;
}

TEST(VideoRecorderSoakTest, KeepsEverySampleAndNoMemory) {
    const Apartment apartment;
    const CaptureFolders folders;
    const std::uint64_t start = GetTickCount64();
    std::uint64_t elapsed = 0;
    const ImportPatch clock("kernel32.dll", "GetTickCount64", &GetTickCount64,
                            [&](auto*) { return ULONGLONG{start + elapsed}; });
    VideoRecorder recorder;
    std::wstring path;
    ASSERT_EQ(recorder.Start(Width, Height, &path), S_OK);

    const std::uint64_t frames = FrameCount();
    ASSERT_GT(frames, WarmUpFrames);
    std::vector<std::uint8_t> frame(Width * Height * 3 / 2, 128);
    // Filled at once: the test itself allocates nothing and touches no new page during the recording.
    std::vector<std::int64_t> times(frames);
    std::vector<Look> looks;
    looks.reserve(LookCount + 1);
    const std::uint64_t framesPerLook = (frames - WarmUpFrames + LookCount - 1) / LookCount;
    for (std::uint64_t number = 0; number < frames; ++number) {
        if (number >= WarmUpFrames && (number - WarmUpFrames) % framesPerLook == 0) {
            looks.push_back({number, CommittedBytes(), AllocatedBytes()});
        }
        elapsed = (number + 1) * 1000 / FramesPerSecond;
        times[number] = static_cast<std::int64_t>(elapsed) * 10'000;
        for (std::uint32_t i = 0; i < Width * Height; ++i) { // moving stripes
            frame[i] = static_cast<std::uint8_t>(i % Width / 2 + number);
        }
        ASSERT_EQ(recorder.WriteFrame(frame.data(), static_cast<std::int32_t>(frame.size())), S_OK) << number;
    }
    looks.push_back({frames, CommittedBytes(), AllocatedBytes()});
    EXPECT_LE(looks.back().committedBytes, looks.front().committedBytes + MemoryAllowance);

    EXPECT_EQ(recorder.Stop(nullptr), S_OK);
    EXPECT_EQ(FrameTimes(ReadBytes(path + L".json")), times);
    std::printf("%zu frames in %zu MB of video\n", times.size(),
                static_cast<std::size_t>(std::filesystem::file_size(path) >> 20));
    for (const Look& look : looks) {
        std::printf("after %zu frames: %zu bytes committed, %zu allocated\n", static_cast<std::size_t>(look.frames),
                    static_cast<std::size_t>(look.committedBytes), static_cast<std::size_t>(look.allocatedBytes));
    }
}

} // namespace
} // namespace receiver
