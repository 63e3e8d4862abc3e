// The canvas on which frames are drawn: one NV12 frame that knows which part of it is still black.
// Pure: no Windows calls.
#pragma once

#include "frames/frame_plan.h"
#include "frames/nv12_frame.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <vector>

namespace receiver {

// Gives vectors memory that begins with a cache line: stores of whole vectors then stay within one.
template <typename Value>
struct LineAllocator {
    using value_type = Value;
    static constexpr std::align_val_t LineBytes{64};

    LineAllocator() = default;
    template <typename Other>
    explicit LineAllocator(const LineAllocator<Other>&) noexcept {}
    // NOLINTNEXTLINE(readability-identifier-naming): the standard's name
    [[nodiscard]] Value* allocate(std::size_t count) {
        return static_cast<Value*>(::operator new(count * sizeof(Value), LineBytes));
    }
    // NOLINTNEXTLINE(readability-identifier-naming): the standard's name
    void deallocate(Value* values, std::size_t) noexcept { ::operator delete(values, LineBytes); }
    bool operator==(const LineAllocator&) const = default;
};
using LineAlignedBytes = std::vector<std::uint8_t, LineAllocator<std::uint8_t>>;

class FrameCanvas {
public:
    FrameCanvas() = default;
    // A canvas that holds anything, in any number of bytes.
    explicit FrameCanvas(std::span<const std::uint8_t> bytes) : bytes_(bytes.begin(), bytes.end()) {}

    // width * height luma bytes, then U,V pairs: BT.601, limited range. Empty before the first frame.
    [[nodiscard]] std::span<const std::uint8_t> Bytes() const noexcept { return bytes_; }
    // What was prepared last.
    [[nodiscard]] Nv12Frame Frame() const noexcept { return {bytes_, width_, height_}; }

    // Makes this a canvas of the given size that is black outside `picture`; inside anything may be left over. Whatever
    // is written to luma and chroma afterwards must stay inside, for what is black is not cleared again.
    void Prepare(std::uint32_t width, std::uint32_t height, const PictureRectangle& picture);
    // Lets the next Prepare clear everything again.
    void Forget() noexcept { width_ = 0; }

    [[nodiscard]] std::uint8_t* Luma() noexcept { return bytes_.data(); }
    [[nodiscard]] std::uint8_t* Chroma() noexcept;

private:
    LineAlignedBytes bytes_;
    std::uint32_t width_ = 0; // 0: nothing is known about the bytes
    std::uint32_t height_ = 0;
    PictureRectangle picture_; // outside the canvas is black
};

} // namespace receiver
