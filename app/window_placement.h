// Where a window goes when its size changes: around the same center, inside its monitor's work area.
// Pure: no Windows calls. All numbers are pixels.
#pragma once

#include <cstdint>

namespace receiver {

struct WindowRectangle {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;

    bool operator==(const WindowRectangle&) const = default;
};

// The new rectangle of a window that now covers `current` and gets the outer size `width` x `height`: reduced to the
// size of `workArea`, around the old center, then moved into `workArea`.
[[nodiscard]] WindowRectangle PlaceWindow(const WindowRectangle& current, std::int32_t width, std::int32_t height,
                                          const WindowRectangle& workArea) noexcept;

} // namespace receiver
