// The video qualities: everything that the program knows about each of them. Pure: no Windows calls.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace receiver {

struct Quality {
    std::wstring_view name; // as the page and the settings file write it, ASCII
    std::uint32_t width = 0; // of the published frames, pixels
    std::uint32_t height = 0;
    std::uint32_t bitsPerSecond = 0; // of a recording
};

// From the smallest to the largest.
inline constexpr std::array<Quality, 2> Qualities = {{
    {L"720p", 1280, 720, 6'000'000},
    {L"1080p", 1920, 1080, 10'000'000},
}};

inline constexpr const Quality& DefaultQuality = Qualities.front(); // in force at every start
inline constexpr const Quality& LargestQuality = Qualities.back();

// The quality of exactly this name, or null.
[[nodiscard]] const Quality* FindQuality(std::wstring_view name) noexcept;

// The quality of exactly this frame size, or null.
[[nodiscard]] const Quality* FindQuality(std::uint32_t width, std::uint32_t height) noexcept;

// Bit rate of a recording of any frame size: that of the largest quality that is not wider.
[[nodiscard]] std::uint32_t RecordingBitsPerSecond(std::uint32_t width) noexcept;

} // namespace receiver
