// Geometry of a window that changes its shape: centred where it was, inside its monitor's work area.
// Pure: no Windows calls. All numbers in pixels.
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

// Where a window that now covers `current` goes when its outer size becomes `width` x `height`: no larger than
// `workArea`, on its old centre as far as `workArea` allows.
[[nodiscard]] WindowRectangle PlaceWindow(const WindowRectangle& current, std::int32_t width, std::int32_t height,
                                          const WindowRectangle& workArea) noexcept;

} // namespace receiver
