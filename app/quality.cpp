#include "app/quality.h"

namespace receiver {

const Quality* FindQuality(std::wstring_view name) noexcept {
    for (const Quality& quality : Qualities) {
        if (quality.name == name) {
            return &quality;
        }
    }
    return nullptr;
}

const Quality* FindQuality(std::uint32_t width, std::uint32_t height) noexcept {
    for (const Quality& quality : Qualities) {
        if (quality.width == width && quality.height == height) {
            return &quality;
        }
    }
    return nullptr;
}

std::uint32_t RecordingBitsPerSecond(std::uint32_t width) noexcept {
    std::uint32_t bitsPerSecond = DefaultQuality.bitsPerSecond;
    for (const Quality& quality : Qualities) {
        if (quality.width <= width) {
            bitsPerSecond = quality.bitsPerSecond;
        }
    }
    return bitsPerSecond;
}

} // namespace receiver
