// The formats that the sample camera offers.
// Pure: no Windows calls.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace sample_camera {

enum class PixelFormat { Nv12, Yuy2, I420 };

struct PictureSize {
    std::uint32_t width;
    std::uint32_t height;

    friend constexpr bool operator==(const PictureSize&, const PictureSize&) = default;
};

struct VideoFormat {
    PixelFormat pixels;
    PictureSize size;

    friend constexpr bool operator==(const VideoFormat&, const VideoFormat&) = default;
};

inline constexpr PictureSize Size720p{1280, 720};
inline constexpr PictureSize Size1080p{1920, 1080};

// The first one is the default.
inline constexpr std::array VideoFormats{
    VideoFormat{PixelFormat::Nv12, Size720p},  VideoFormat{PixelFormat::Yuy2, Size720p},
    VideoFormat{PixelFormat::I420, Size720p},  VideoFormat{PixelFormat::Nv12, Size1080p},
    VideoFormat{PixelFormat::Yuy2, Size1080p}, VideoFormat{PixelFormat::I420, Size1080p}};

// Time from one frame to the next. 333333 and not 333334: clients divide, and the latter becomes 29 frames per second.
inline constexpr std::int64_t ShortestInterval100ns = 333333;
inline constexpr std::int64_t LongestInterval100ns = 10000000;

[[nodiscard]] constexpr std::uint32_t BitsPerPixel(PixelFormat pixels) noexcept {
    return pixels == PixelFormat::Yuy2 ? 16 : 12;
}

[[nodiscard]] constexpr std::uint32_t ImageBytes(const VideoFormat& format) noexcept {
    return format.size.width * format.size.height / 8 * BitsPerPixel(format.pixels);
}

[[nodiscard]] constexpr std::uint32_t FourCc(PixelFormat pixels) noexcept {
    constexpr std::uint32_t Codes[] = {0x3231564E, 0x32595559, 0x30323449}; // "NV12", "YUY2", "I420", little-endian
    return Codes[static_cast<std::size_t>(pixels)];
}

} // namespace sample_camera
