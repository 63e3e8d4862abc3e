// Frames of which every eight bytes tell which frame they belong to and where they stand in it, so that a frame put
// together from two, or shifted, is recognized.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

namespace receiver {

struct PatternSize {
    std::uint32_t width;
    std::uint32_t height;

    [[nodiscard]] std::uint32_t Bytes() const noexcept { return width * height * 3 / 2; }
};

// The two sizes take turns, so that a picture under the header of its neighbor is recognized too.
[[nodiscard]] inline PatternSize SizeOfPattern(std::uint32_t number) noexcept {
    return number % 2 == 0 ? PatternSize{1280, 720} : PatternSize{1920, 1080};
}

[[nodiscard]] inline std::uint64_t PatternWord(std::uint32_t number, std::size_t index) noexcept {
    return std::uint64_t{number} << 32 | index;
}

// Both frame sizes are multiples of eight; `size` must be one too.
inline void FillPattern(std::uint8_t* frame, std::size_t size, std::uint32_t number) noexcept {
    for (std::size_t index = 0; index < size / 8; ++index) {
        const std::uint64_t word = PatternWord(number, index);
        std::memcpy(frame + 8 * index, &word, sizeof(word));
    }
}

// The number of the frame; empty when the bytes are not one whole frame of the size that goes with it.
[[nodiscard]] inline std::optional<std::uint32_t> ReadPattern(const std::uint8_t* frame, std::uint32_t width,
                                                              std::uint32_t height) noexcept {
    std::uint64_t first = 0;
    std::memcpy(&first, frame, sizeof(first));
    const auto number = static_cast<std::uint32_t>(first >> 32);
    const PatternSize size = SizeOfPattern(number);
    if (width != size.width || height != size.height) {
        return std::nullopt;
    }
    for (std::size_t index = 0; index < size.Bytes() / 8; ++index) {
        std::uint64_t word = 0;
        std::memcpy(&word, frame + 8 * index, sizeof(word));
        if (word != PatternWord(number, index)) {
            return std::nullopt;
        }
    }
    return number;
}

} // namespace receiver
