#include "app/window_placement.h"

#include <algorithm>

namespace receiver {
namespace {

struct Span {
    std::int32_t low = 0;
    std::int32_t high = 0;
};

// One axis of the placement.
Span PlaceSpan(Span current, std::int32_t length, Span workArea) noexcept {
    const std::int32_t size = std::min(workArea.high - workArea.low, length);
    std::int32_t low = current.low + (current.high - current.low) / 2 - size / 2;
    if (low > workArea.high - size) {
        low = workArea.high - size;
    } else if (low < workArea.low) {
        low = workArea.low;
    }
    return {low, low + size};
}

} // namespace

WindowRectangle PlaceWindow(const WindowRectangle& current, std::int32_t width, std::int32_t height,
                            const WindowRectangle& workArea) noexcept {
    const Span x = PlaceSpan({current.left, current.right}, width, {workArea.left, workArea.right});
    const Span y = PlaceSpan({current.top, current.bottom}, height, {workArea.top, workArea.bottom});
    return {x.low, y.low, x.high, y.high};
}

} // namespace receiver
