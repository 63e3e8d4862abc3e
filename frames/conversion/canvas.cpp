#include "frames/conversion/canvas.h"

#include <cstring>

namespace receiver {
namespace {

constexpr std::uint8_t BlackY = 16;
constexpr std::uint8_t BlackUV = 128;

bool Covers(const PictureRectangle& outer, const PictureRectangle& inner) noexcept {
    if (inner.width == 0) {
        return true;
    }
    return outer.x <= inner.x && outer.y <= inner.y && outer.x + outer.width >= inner.x + inner.width &&
           outer.y + outer.height >= inner.y + inner.height;
}

// Fills all of a plane except `rowCount` rows of `rowBytes`, the first of them at `first`.
void FillAround(std::uint8_t* plane, std::size_t planeBytes, std::size_t stride, std::size_t first,
                std::size_t rowCount, std::size_t rowBytes, std::uint8_t value) noexcept {
    std::size_t filled = 0; // up to here
    for (std::size_t row = 0; row < rowCount; ++row) {
        const std::size_t start = first + row * stride;
        std::memset(plane + filled, value, start - filled); // the right bar of one row and the left bar of the next
        filled = start + rowBytes;
    }
    std::memset(plane + filled, value, planeBytes - filled);
}

} // namespace

void FrameCanvas::Prepare(std::uint32_t newWidth, std::uint32_t newHeight, const PictureRectangle& newPicture) {
    if (width == newWidth && height == newHeight && Covers(newPicture, picture)) {
        picture = newPicture;
        return;
    }
    width = 0; // stays 0 if resize throws
    bytes.resize(Nv12Size(newWidth, newHeight));
    width = newWidth;
    height = newHeight;
    picture = newPicture;
    const std::size_t stride = width;
    const std::size_t yBytes = stride * height;
    FillAround(Y(), yBytes, stride, picture.y * stride + picture.x, picture.height, picture.width, BlackY);
    FillAround(UV(), yBytes / 2, stride, picture.y / 2 * stride + picture.x, picture.height / 2, picture.width,
               BlackUV);
}

} // namespace receiver
