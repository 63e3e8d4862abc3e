#include "tools/camera_probe/judge_commands.h"

#include "platform/handles.h"
#include "tools/camera_probe/frame_player.h"
#include "tools/camera_probe/writer_check.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>

namespace receiver {
namespace {

// The file, mapped for reading.
class WatchedFile {
public:
    [[nodiscard]] bool Open(const std::wstring& path) {
        constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        const UniqueFile file(
            CreateFileW(path.c_str(), GENERIC_READ, ShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        LARGE_INTEGER size{};
        if (!file || GetFileSizeEx(file.Get(), &size) == FALSE || size.QuadPart != LONGLONG{vistel::FileSize}) {
            return false;
        }
        const UniqueHandle mapping(CreateFileMappingW(file.Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
        view.Reset(mapping ? MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, vistel::FileSize) : nullptr);
        return static_cast<bool>(view);
    }

    // Empty when the sequence changed in the meantime.
    [[nodiscard]] std::optional<WriterObservation> Look() const {
        WriterObservation seen;
        const std::uint64_t sequence = Sequence();
        std::memcpy(&seen.header, view.Get(), sizeof(seen.header));
        seen.activeBufferHash = sequence % 2 == 0 ? Hash(seen.header) : 0;
        std::atomic_thread_fence(std::memory_order_acquire);
        if (Sequence() != sequence || seen.header.sequence != sequence) {
            return std::nullopt;
        }
        seen.nowMs = GetTickCount64();
        return seen;
    }

private:
    [[nodiscard]] const std::uint8_t* Bytes() const { return static_cast<const std::uint8_t*>(view.Get()); }
    [[nodiscard]] std::uint64_t Sequence() const {
        const auto* const place = Bytes() + offsetof(vistel::FileHeader, sequence);
        const std::uint64_t sequence = *reinterpret_cast<const volatile std::uint64_t*>(place);
        std::atomic_thread_fence(std::memory_order_acquire);
        return sequence;
    }
    // FNV-1a over words of eight bytes.
    [[nodiscard]] std::uint64_t Hash(const vistel::FileHeader& header) const {
        const std::uint8_t* const buffer =
            Bytes() + sizeof(header) + (header.activeBuffer == 0 ? 0 : vistel::MaxFrameSize);
        const std::size_t size = std::min<std::size_t>(header.frameSize, vistel::MaxFrameSize);
        std::uint64_t hash = 0xCBF29CE484222325;
        for (std::size_t i = 0; i + 8 <= size; i += 8) {
            std::uint64_t word = 0;
            std::memcpy(&word, buffer + i, sizeof(word));
            hash = (hash ^ word) * 0x100000001B3;
        }
        return hash;
    }

    MappedView view;
};

} // namespace

int PlayFrames(const std::wstring& path, const std::wstring& scenario, HANDLE ended) {
    FramePlayer player(
        [ended](std::uint32_t milliseconds) { return WaitForSingleObject(ended, milliseconds) == WAIT_TIMEOUT; });
    const HRESULT opened = player.Open(path);
    if (FAILED(opened)) {
        std::fprintf(stderr, "The file could not be opened: 0x%08lX.\n", static_cast<unsigned long>(opened));
        return 1;
    }
    bool played = false;
    for (const Scenario& each : Scenarios()) {
        if (scenario.empty() || scenario == each.name) {
            played = true;
            std::printf("%ls: %s\n", each.name, each.promise);
            std::fflush(stdout);
            if (!each.play(player)) {
                return 0;
            }
        }
    }
    if (!played) {
        std::fputs("There is no such scenario; these are there:", stderr);
        for (const Scenario& each : Scenarios()) {
            std::fprintf(stderr, " %ls", each.name);
        }
        std::fputs("\n", stderr);
    }
    return played ? 0 : 2;
}

int CheckWriter(const std::wstring& path, std::optional<std::chrono::seconds> duration, HANDLE ended) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    WatchedFile file;
    bool open = false;
    WriterCheck check;
    while (WaitForSingleObject(ended, 1) == WAIT_TIMEOUT && (!duration || Clock::now() - start < *duration)) {
        open = open || file.Open(path);
        if (const std::optional<WriterObservation> seen = open ? file.Look() : std::nullopt) {
            check.Look(*seen);
        }
    }
    if (!open) {
        std::puts("There was no frame file, or one of another size.");
    }
    for (std::size_t i = 0; i < WriterRuleCount; ++i) {
        const auto rule = static_cast<WriterRule>(i);
        const WriterCheck::Verdict& verdict = check.VerdictOn(rule);
        if (!verdict.evidence.empty()) {
            std::printf("BROKEN  %s: %s\n", Text(rule), verdict.evidence.c_str());
        } else {
            std::printf("%s  %s (%llu looks)\n", verdict.looks > 0 ? "kept  " : "unseen", Text(rule),
                        static_cast<unsigned long long>(verdict.looks));
        }
    }
    return check.Passed() ? 0 : 1;
}

} // namespace receiver
