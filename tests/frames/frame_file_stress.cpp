// One process of the shared frame file's process tests; uses the file in %ProgramData%.
//   frame_file_stress writer FIRST              publishes patterns numbered from FIRST until standard input ends
//   frame_file_stress crasher FIRST COUNT BYTES publishes COUNT of them, then ends after copying BYTES of one more
//   frame_file_stress reader FRAMES RETRIES PAUSE
//                                               reads until standard input has ended, it has read FRAMES whole frames
//                                               of each size and it has retried RETRIES copies; waits PAUSE
//                                               milliseconds after each read, but not while a frame is being written
// Exit codes: 0 done, 1 a mixed or misplaced frame was accepted, 2 wrong usage or not enough frames in time,
// 3 publishing failed, 77 ended as requested while copying.
#include "examples/camera/frame_reader.h"
#include "frames/shared_frame_file.h"
#include "tests/frames/frame_pattern.h"
#include "tests/frames/shared_frame_file_pattern.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace receiver {
namespace {

enum ExitCode : int { Done = 0, MixedFrame = 1, Unfinished = 2, PublishFailed = 3, EndedAsRequested = 77 };

constexpr ULONGLONG ReadersLimitMs = 60000; // from the end of standard input on

std::atomic<ULONGLONG> inputEndMs = 0; // 0 while standard input is open

void WatchInput() {
    std::array<char, 64> bytes{};
    DWORD count = 0;
    while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) !=
               FALSE &&
           count != 0) {
    }
    inputEndMs = GetTickCount64();
}

// Frames without a pause make readers retry. After each burst a pause gives them time for a copy; bursts end with
// frames of both sizes alternately.
void Pause(std::uint32_t number) {
    constexpr std::uint32_t FramesInABurst = 5;
    if (number % FramesInABurst == 0) {
        Sleep(2);
    }
}

ExitCode Write(std::uint32_t number) {
    SharedFrameFile file;
    const std::uint32_t first = number;
    for (; inputEndMs == 0; ++number) {
        if (PublishPattern(file, number) != S_OK) {
            return PublishFailed;
        }
        Pause(number);
    }
    std::printf("%u frames published\n", number - first);
    return Done;
}

std::uintptr_t unreadableBegin = 0;
std::uintptr_t unreadableEnd = 0;

LONG CALLBACK EndAtUnreadableBytes(EXCEPTION_POINTERS* exception) {
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.ExceptionInformation[1] >= unreadableBegin &&
        record.ExceptionInformation[1] < unreadableEnd) {
        TerminateProcess(GetCurrentProcess(), EndedAsRequested);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

// Only the first `readableBytes`, whole pages, of the last frame are readable; the copy into the file ends after them.
ExitCode WriteAndCrash(std::uint32_t number, std::uint32_t count, std::uint32_t readableBytes) {
    SharedFrameFile file;
    for (; count > 0; ++number, --count) {
        if (PublishPattern(file, number) != S_OK) {
            return PublishFailed;
        }
        Pause(number);
    }
    const PatternSize size = SizeOfPattern(number);
    auto* const source = static_cast<std::uint8_t*>(VirtualAlloc(nullptr, size.Bytes(), MEM_RESERVE, PAGE_NOACCESS));
    if (source == nullptr || readableBytes >= size.Bytes() ||
        (readableBytes > 0 && VirtualAlloc(source, readableBytes, MEM_COMMIT, PAGE_READWRITE) == nullptr)) {
        return Unfinished;
    }
    FillPattern(source, readableBytes, number);
    unreadableBegin = reinterpret_cast<std::uintptr_t>(source) + readableBytes;
    unreadableEnd = reinterpret_cast<std::uintptr_t>(source) + size.Bytes();
    AddVectoredExceptionHandler(1, EndAtUnreadableBytes);
    return file.PublishFrame(source, size.Bytes(), size.width, size.height) == S_OK ? Unfinished : PublishFailed;
}

ExitCode Read(std::uint32_t wantedFrames, std::uint32_t wantedRetries, DWORD pauseMs) {
    vistel::FrameReader reader;
    vistel::FrameInfo frame;
    std::vector<std::uint8_t> nv12(vistel::MaxFrameSize);
    std::array<std::uint32_t, 2> accepted{};
    std::uint32_t torn = 0;
    const auto hasEnough = [&] {
        return std::min(accepted[0], accepted[1]) >= wantedFrames && reader.RetryCount() >= wantedRetries;
    };
    while (inputEndMs == 0 || (torn == 0 && !hasEnough() && GetTickCount64() - inputEndMs < ReadersLimitMs)) {
        const vistel::ReadResult result = reader.Read(frame, [&](std::uint32_t width, std::uint32_t) {
            return vistel::Destination{nv12.data(), width};
        });
        if (result == vistel::ReadResult::NewFrame) {
            // Pattern n ends at sequence 2n.
            const std::optional<std::uint32_t> number = ReadPattern(nv12.data(), frame.width, frame.height);
            const bool whole = number && *number == frame.sequence / 2;
            ++(whole ? accepted[*number % 2] : torn);
        } else if (result == vistel::ReadResult::Damaged) {
            ++torn;
        }
        if (result == vistel::ReadResult::Busy || pauseMs == 0) {
            SwitchToThread();
        } else {
            Sleep(pauseMs);
        }
    }
    std::printf("%u small and %u large frames accepted, %llu copies retried, %u frames torn\n", accepted[0],
                accepted[1], static_cast<unsigned long long>(reader.RetryCount()), torn);
    return torn > 0 ? MixedFrame : hasEnough() ? Done : Unfinished;
}

ExitCode Run(const std::vector<std::wstring_view>& arguments) {
    std::vector<std::uint32_t> numbers;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        numbers.push_back(static_cast<std::uint32_t>(std::wcstoul(arguments[i].data(), nullptr, 10)));
    }
    const std::wstring_view role = arguments.empty() ? L"" : arguments[0];
    if (role == L"writer" && numbers.size() == 1) {
        return Write(numbers[0]);
    }
    if (role == L"crasher" && numbers.size() == 3) {
        return WriteAndCrash(numbers[0], numbers[1], numbers[2]);
    }
    if (role == L"reader" && numbers.size() == 3) {
        return Read(numbers[0], numbers[1], numbers[2]);
    }
    std::puts("wrong usage");
    return Unfinished;
}

} // namespace
} // namespace receiver

int wmain(int count, wchar_t** arguments) {
    std::thread(receiver::WatchInput).detach();
    const int exitCode = receiver::Run({arguments + 1, arguments + count});
    std::fflush(stdout);
    ExitProcess(static_cast<UINT>(exitCode)); // Ends the thread that waits for input, too.
}
