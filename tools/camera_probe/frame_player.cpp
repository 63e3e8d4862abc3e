#include "tools/camera_probe/frame_player.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace receiver {
namespace {

constexpr std::uint32_t Width720p = 1280;
constexpr std::uint32_t Width1080p = 1920;
constexpr std::uint32_t FrameMs = 33;
constexpr int FramesPerScenario = 60;
constexpr std::uint32_t LongSilenceMs = 4000; // twice the time after which a picture is stale

// As many frames as 30 a second allow, each of the width that `widthOf` names.
bool Steady(FramePlayer& player, int count, std::uint32_t (*widthOf)(int index)) {
    for (int i = 0; i < count; ++i) {
        player.WriteFrame(widthOf(i));
        if (!player.Pause(FrameMs)) {
            return false;
        }
    }
    return true;
}

std::uint32_t Always720p(int /*index*/) { return Width720p; }

bool PlaySteady(FramePlayer& player) { return Steady(player, FramesPerScenario, Always720p); }

// Half of each frame is there for some milliseconds before the rest.
bool PlayTorn(FramePlayer& player) {
    for (int i = 0; i < FramesPerScenario; ++i) {
        player.Begin(Width720p);
        player.FillRows(0, 360);
        if (!player.Pause(FrameMs / 2)) {
            return false;
        }
        player.FillRows(360, 720);
        player.End();
        if (!player.Pause(FrameMs / 2)) {
            return false;
        }
    }
    return true;
}

bool PlayOdd(FramePlayer& player) {
    if (!Steady(player, FramesPerScenario / 2, Always720p)) {
        return false;
    }
    player.Begin(Width720p);
    player.FillRows(0, 360);
    return player.Pause(LongSilenceMs) && Steady(player, FramesPerScenario / 2, Always720p);
}

bool PlayReset(FramePlayer& player) {
    for (int i = 0; i < 3; ++i) {
        if (!Steady(player, FramesPerScenario / 3, Always720p)) {
            return false;
        }
        player.Reset();
    }
    return Steady(player, FramesPerScenario / 3, Always720p);
}

bool PlayQuality(FramePlayer& player) {
    return Steady(player, FramesPerScenario, [](int index) { return index / 10 % 2 == 0 ? Width720p : Width1080p; });
}

bool PlayBursts(FramePlayer& player) {
    for (int burst = 0; burst < 6; ++burst) {
        for (int i = 0; i < FramesPerScenario / 6; ++i) {
            player.WriteFrame(Width1080p);
        }
        if (!player.Pause(10 * FrameMs)) {
            return false;
        }
    }
    return true;
}

bool PlaySilence(FramePlayer& player) {
    return Steady(player, FramesPerScenario / 2, Always720p) && player.Pause(LongSilenceMs) &&
           Steady(player, FramesPerScenario / 2, Always720p);
}

bool PlayHeader(FramePlayer& player) {
    const std::function<void(vistel::FileHeader&)> damages[] = {
        [](vistel::FileHeader& header) { header.version = 3; }, [](vistel::FileHeader& header) { header.magic = 0; },
        [](vistel::FileHeader& header) { header.width = 640; }, [](vistel::FileHeader& header) { ++header.stride; },
        [](vistel::FileHeader& header) { --header.frameSize; }};
    for (const auto& damage : damages) {
        if (!Steady(player, FramesPerScenario / 6, Always720p)) {
            return false;
        }
        player.WriteFrameWith(damage);
        if (!player.Pause(FrameMs)) {
            return false;
        }
    }
    return Steady(player, FramesPerScenario / 6, Always720p);
}

} // namespace

const std::vector<Scenario>& Scenarios() {
    static const std::vector<Scenario> scenarios{
        {L"steady", "Shows each frame once and in order.", PlaySteady},
        {L"torn", "Shows no picture whose halves move apart: a frame is taken only when it is whole.", PlayTorn},
        {L"odd", "Shows no picture two seconds after the writer was killed in a frame; goes on with the next one.",
         PlayOdd},
        {L"reset", "Goes on with each new frame although the sequence begins again.", PlayReset},
        {L"quality", "Shows 720p and 1080p in turn, or one size with the other scaled.", PlayQuality},
        {L"bursts", "Shows the newest frame of each burst, whatever it missed, and never hangs.", PlayBursts},
        {L"silence", "Shows no picture two seconds after the last frame; goes on with the next one.", PlaySilence},
        {L"header", "Shows nothing of a frame with a wrong header; goes on with the next one.", PlayHeader},
    };
    return scenarios;
}

HRESULT FramePlayer::Open(const std::wstring& path) {
    file.Reset(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return LastErrorResult();
    }
    LARGE_INTEGER size;
    size.QuadPart = vistel::FileSize;
    if (SetFilePointerEx(file.Get(), size, nullptr, FILE_BEGIN) == FALSE || SetEndOfFile(file.Get()) == FALSE) {
        return LastErrorResult();
    }
    mapping.Reset(CreateFileMappingW(file.Get(), nullptr, PAGE_READWRITE, 0, 0, nullptr));
    if (!mapping) {
        return LastErrorResult();
    }
    view.Reset(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, vistel::FileSize));
    if (!view) {
        return LastErrorResult();
    }
    Reset();
    return S_OK;
}

void FramePlayer::AddToSequence(std::uint64_t count) const {
    // All stores of a step come before the next change of the sequence, and none of the next step before it.
    std::atomic_ref(Header().sequence).fetch_add(count);
}

void FramePlayer::Begin(std::uint32_t width) {
    AddToSequence(Header().sequence % 2 == 0 ? 1 : 2); // odd: the writer before was killed in a frame
    SetHeader(width);
}

void FramePlayer::SetHeader(std::uint32_t width) const {
    vistel::FileHeader& header = Header();
    header.magic = vistel::FileHeader::Magic;
    header.version = vistel::FileHeader::Version;
    header.width = width;
    header.height = width / 16 * 9;
    header.stride = width;
    header.frameSize = width * header.height * 3 / 2;
}

void FramePlayer::FillRows(std::uint32_t first, std::uint32_t count) {
    const vistel::FileHeader& header = Header();
    const std::uint64_t number = (header.sequence + 1) / 2;
    std::uint8_t* const buffer = Bytes() + sizeof(header) + Inactive() * vistel::MaxFrameSize;
    const std::uint32_t end = std::min(first + count, header.height * 3 / 2);
    for (std::uint32_t y = first; y < end; ++y) {
        std::uint8_t* const row = buffer + std::size_t{y} * header.width;
        for (std::uint32_t x = 0; x < header.width; ++x) {
            row[x] = y < header.height ? PlayedY(number, x, y) : std::uint8_t{128};
        }
    }
}

void FramePlayer::End() {
    vistel::FileHeader& header = Header();
    std::atomic_ref(header.activeBuffer).store(Inactive());
    std::atomic_ref(header.timestamp).store(GetTickCount64());
    AddToSequence(1);
}

void FramePlayer::WriteFrame(std::uint32_t width) {
    Begin(width);
    FillRows(0, Header().height * 3 / 2);
    End();
}

void FramePlayer::Reset() {
    std::memset(Bytes() + offsetof(vistel::FileHeader, sequence), 0,
                vistel::FileSize - offsetof(vistel::FileHeader, sequence));
    // Zeros are visible before the geometry: no reader accepts an old frame under the new header.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    SetHeader(Width720p);
}

void FramePlayer::WriteFrameWith(const std::function<void(vistel::FileHeader&)>& damage) {
    Begin(Width720p);
    FillRows(0, Header().height * 3 / 2);
    damage(Header());
    End();
}

} // namespace receiver
