#include "frames/frame_canvas.h"

#include <cstddef>
#include <cstring>

namespace receiver {
namespace {

constexpr std::uint8_t BlackLuma = 16;
constexpr std::uint8_t NeutralChroma = 128;

bool Covers(const PictureRectangle& outer, const PictureRectangle& inner) noexcept {
    if (inner.width == 0) {
        return true;
    }
    return outer.x <= inner.x && outer.y <= inner.y && outer.x + outer.width >= inner.x + inner.width &&
           outer.y + outer.height >= inner.y + inner.height;
}

// Fills all of a plane but `rowCount` rows of `rowBytes`, the first of them at `first`. What lies between two rows is
// filled in one go: the right bar of one and the left bar of the next.
void FillAround(std::uint8_t* plane, std::size_t planeBytes, std::size_t pitch, std::size_t first, std::size_t rowCount,
                std::size_t rowBytes, std::uint8_t value) noexcept {
    std::size_t filled = 0;
    if (rowBytes == pitch) {
        std::memset(plane, value, first);
        filled = first + rowCount * pitch;
    } else {
        for (std::size_t row = 0; row < rowCount; ++row) {
            const std::size_t start = first + row * pitch;
            std::memset(plane + filled, value, start - filled);
            filled = start + rowBytes;
        }
    }
    std::memset(plane + filled, value, planeBytes - filled);
}

} // namespace

std::uint8_t* FrameCanvas::Chroma() noexcept { return bytes_.data() + std::size_t{width_} * height_; }

void FrameCanvas::Prepare(std::uint32_t width, std::uint32_t height, const PictureRectangle& picture) {
    const std::size_t pitch = width;
    const std::size_t lumaBytes = pitch * height;
    const std::size_t size = lumaBytes / 2 * 3;
    if (width_ == width && height_ == height && bytes_.size() == size && Covers(picture, picture_)) {
        picture_ = picture;
        return;
    }
    width_ = 0; // in case there is no memory
    bytes_.resize(size);
    width_ = width;
    height_ = height;
    picture_ = picture;
    FillAround(Luma(), lumaBytes, pitch, picture.y * pitch + picture.x, picture.height, picture.width, BlackLuma);
    FillAround(Chroma(), lumaBytes / 2, pitch, picture.y / 2 * pitch + picture.x, picture.height / 2, picture.width,
               NeutralChroma);
}

} // namespace receiver
