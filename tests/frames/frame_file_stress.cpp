// One process of the shared frame file's process tests; works on the file in %ProgramData%.
//   frame_file_stress writer FIRST             publishes patterns numbered from FIRST until standard input ends
//   frame_file_stress doomed FIRST COUNT BYTES publishes COUNT of them, then dies BYTES into writing one more
//   frame_file_stress reader FRAMES RETRIES    reads until it has FRAMES whole frames of each size and met a writer at
//                                              work RETRIES times
// Exit codes: 0 done, 1 a mixed or misplaced frame was accepted, 2 wrong use or ended too early, 3 publishing failed,
// 77 died as asked.
#include "examples/camera/frame_reader.h"
#include "frames/shared_frame_file.h"
#include "platform/environment_variable.h"
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

enum ExitCode : int { Done = 0, MixedFrame = 1, Unfinished = 2, PublishFailed = 3, DiedAsAsked = 77 };

std::atomic<bool> inputEnded = false;

void WatchInput() {
    std::array<char, 64> bytes{};
    DWORD count = 0;
    while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) !=
               FALSE &&
           count != 0) {
    }
    inputEnded = true;
}

// Frames that follow at once collide with readers, later ones leave them the time for a copy.
void Pause(std::uint32_t number) {
    const DWORD pauseMs = number % 8;
    if (pauseMs != 0) {
        Sleep(pauseMs);
    }
}

ExitCode Write(std::uint32_t number) {
    SharedFrameFile file;
    for (; !inputEnded; ++number) {
        if (PublishPattern(file, number) != S_OK) {
            return PublishFailed;
        }
        Pause(number);
    }
    return Done;
}

std::uintptr_t unreadableBegin = 0;
std::uintptr_t unreadableEnd = 0;

LONG CALLBACK DieAtUnreadableBytes(EXCEPTION_POINTERS* exception) {
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.ExceptionInformation[1] >= unreadableBegin &&
        record.ExceptionInformation[1] < unreadableEnd) {
        TerminateProcess(GetCurrentProcess(), DiedAsAsked);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

// The last frame has memory for its first `readableBytes` only, in whole pages; the copy into the file ends there.
ExitCode WriteAndDie(std::uint32_t number, std::uint32_t count, std::uint32_t readableBytes) {
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
    AddVectoredExceptionHandler(1, DieAtUnreadableBytes);
    return file.PublishFrame(source, size.Bytes(), size.width, size.height) == S_OK ? Unfinished : PublishFailed;
}

ExitCode Read(std::uint32_t wantedFrames, std::uint32_t wantedRetries) {
    vistel::FrameReader reader(ReadEnvironmentVariable(L"ProgramData").value_or(L"") + L"\\Vistel\\frame-buffer.bin");
    vistel::Frame frame;
    std::array<std::uint32_t, 2> accepted{};
    while (std::min(accepted[0], accepted[1]) < wantedFrames || reader.RetryCount() < wantedRetries) {
        if (inputEnded) {
            std::printf("ended with %u and %u frames and %llu retries\n", accepted[0], accepted[1],
                        static_cast<unsigned long long>(reader.RetryCount()));
            return Unfinished;
        }
        const vistel::ReadResult result = reader.ReadNewFrame(frame);
        if (result == vistel::ReadResult::Damaged) {
            std::puts("a consistent sequence with an inconsistent header");
            return MixedFrame;
        }
        if (result != vistel::ReadResult::NewFrame) {
            SwitchToThread();
            continue;
        }
        // Pattern n is the frame that ends at sequence 2n.
        const std::optional<std::uint32_t> number = ReadPattern(frame.nv12.data(), frame.width, frame.height);
        if (!number || *number != frame.sequence / 2) {
            std::printf("mixed or misplaced frame at sequence %llu\n", static_cast<unsigned long long>(frame.sequence));
            return MixedFrame;
        }
        ++accepted[*number % 2];
    }
    return Done;
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
    if (role == L"doomed" && numbers.size() == 3) {
        return WriteAndDie(numbers[0], numbers[1], numbers[2]);
    }
    if (role == L"reader" && numbers.size() == 2) {
        return Read(numbers[0], numbers[1]);
    }
    std::puts("wrong use");
    return Unfinished;
}

} // namespace
} // namespace receiver

int wmain(int count, wchar_t** arguments) {
    std::thread(receiver::WatchInput).detach();
    const int exitCode = receiver::Run({arguments + 1, arguments + count});
    std::fflush(stdout);
    ExitProcess(static_cast<UINT>(exitCode)); // the watcher still waits for input
}
