// Plain conversion, see the header. Deliberate: every coordinate is computed again for every pixel of every loop.
#include "reference_converter.h"

#include <algorithm>
#include <stdexcept>

namespace receiver {
namespace {

struct Picture {
    std::uint64_t x = 0;
    std::uint64_t y = 0;
    std::uint64_t width = 0;
    std::uint64_t height = 0;
};

struct SourcePixel {
    std::uint64_t column = 0;
    std::uint64_t row = 0;
};

bool IsPlanar(std::wstring_view format) { return format == L"I420" || format == L"I420A"; }

std::uint64_t RoundDownToEven(std::uint64_t value) { return value - value % 2; }

Picture Fit(const FrameDescriptor& frame, std::uint64_t canvasWidth, std::uint64_t canvasHeight) {
    std::uint64_t fitWidth = canvasWidth;
    std::uint64_t fitHeight = canvasHeight;
    if (canvasWidth * frame.displayHeight > canvasHeight * frame.displayWidth) {
        fitWidth = canvasHeight * frame.displayWidth / frame.displayHeight;
    } else {
        fitHeight = canvasWidth * frame.displayHeight / frame.displayWidth;
    }
    Picture picture;
    picture.width = std::max<std::uint64_t>(RoundDownToEven(fitWidth), 2);
    picture.height = std::max<std::uint64_t>(RoundDownToEven(fitHeight), 2);
    picture.x = RoundDownToEven((canvasWidth - picture.width) / 2);
    picture.y = RoundDownToEven((canvasHeight - picture.height) / 2);
    return picture;
}

// The source of canvas pixel (x, y), which lies inside the picture.
SourcePixel Sample(const FrameDescriptor& frame, const Picture& picture, std::uint64_t x, std::uint64_t y) {
    const bool transposed = frame.rotation == 90 || frame.rotation == 270;
    const std::uint64_t rotatedWidth = transposed ? frame.codedHeight : frame.codedWidth;
    const std::uint64_t rotatedHeight = transposed ? frame.codedWidth : frame.codedHeight;
    std::uint64_t sx = (x - picture.x) * rotatedWidth / picture.width;
    const std::uint64_t sy = (y - picture.y) * rotatedHeight / picture.height;
    if (frame.flipA != frame.flipB) {
        sx = rotatedWidth - 1 - sx;
    }
    switch (frame.rotation) {
    case 0:
        return {.column = sx, .row = sy};
    case 90:
        return {.column = sy, .row = frame.codedHeight - 1 - sx};
    case 180:
        return {.column = frame.codedWidth - 1 - sx, .row = frame.codedHeight - 1 - sy};
    case 270:
        return {.column = frame.codedWidth - 1 - sy, .row = sx};
    default:
        throw std::invalid_argument("rotation");
    }
}

std::uint8_t ReadSample(std::span<const std::uint8_t> slot, const PlaneLayout& plane, std::uint64_t row,
                        std::uint64_t byteInRow) {
    const std::uint64_t address = plane.offset + row * plane.stride + byteInRow;
    if (address >= slot.size()) {
        throw std::out_of_range("sample outside the slot");
    }
    return slot[static_cast<std::size_t>(address)];
}

ReferenceColor ReadColor(std::span<const std::uint8_t> slot, const PlaneLayout& plane, bool redFirst,
                         const SourcePixel& source) {
    const std::uint8_t first = ReadSample(slot, plane, source.row, source.column * 4);
    const std::uint8_t second = ReadSample(slot, plane, source.row, source.column * 4 + 1);
    const std::uint8_t third = ReadSample(slot, plane, source.row, source.column * 4 + 2);
    return {.red = redFirst ? first : third, .green = second, .blue = redFirst ? third : first};
}

} // namespace

std::vector<PlaneSize> ReferencePlanes(std::wstring_view format, std::uint32_t codedWidth, std::uint32_t codedHeight) {
    const PlaneSize luma{.rowBytes = codedWidth, .rowCount = codedHeight};
    if (format == L"NV12") {
        return {luma, {.rowBytes = codedWidth, .rowCount = codedHeight / 2}};
    }
    if (IsPlanar(format)) {
        const PlaneSize chroma{.rowBytes = codedWidth / 2, .rowCount = codedHeight / 2};
        return {luma, chroma, chroma};
    }
    return {{.rowBytes = std::uint64_t{codedWidth} * 4, .rowCount = codedHeight}};
}

std::uint64_t ReferenceSlotSize(const FrameDescriptor& frame) {
    std::uint64_t size = 0;
    std::size_t index = 0;
    for (const PlaneSize& plane : ReferencePlanes(frame.format, frame.codedWidth, frame.codedHeight)) {
        const PlaneLayout& layout = frame.planes.at(index++);
        size = std::max(size, layout.offset + (plane.rowCount - 1) * layout.stride + plane.rowBytes);
    }
    return size;
}

std::vector<std::uint8_t> BlackCanvas(std::uint32_t canvasWidth, std::uint32_t canvasHeight) {
    const std::size_t lumaSize = std::size_t{canvasWidth} * canvasHeight;
    std::vector<std::uint8_t> canvas(lumaSize, 16);
    canvas.resize(lumaSize + lumaSize / 2, 128);
    return canvas;
}

std::vector<std::uint8_t> ReferenceConvert(std::span<const std::uint8_t> slot, const FrameDescriptor& frame,
                                           std::uint32_t canvasWidth, std::uint32_t canvasHeight) {
    std::vector<std::uint8_t> canvas = BlackCanvas(canvasWidth, canvasHeight);
    const Picture picture = Fit(frame, canvasWidth, canvasHeight);
    const bool isNv12 = frame.format == L"NV12";
    const bool isPacked = !isNv12 && !IsPlanar(frame.format);
    const bool redFirst = frame.format == L"RGBA" || frame.format == L"RGBX";

    for (std::uint64_t y = picture.y; y < picture.y + picture.height; ++y) {
        for (std::uint64_t x = picture.x; x < picture.x + picture.width; ++x) {
            const SourcePixel source = Sample(frame, picture, x, y);
            canvas.at(static_cast<std::size_t>(y * canvasWidth + x)) =
                isPacked ? ReadColor(slot, frame.planes.at(0), redFirst, source).Y()
                         : ReadSample(slot, frame.planes.at(0), source.row, source.column);
        }
    }
    for (std::uint64_t y = picture.y; y < picture.y + picture.height; y += 2) {
        for (std::uint64_t x = picture.x; x < picture.x + picture.width; x += 2) {
            const SourcePixel source = Sample(frame, picture, x, y);
            const std::uint64_t row = source.row / 2;
            const std::uint64_t column = source.column / 2;
            const auto target =
                static_cast<std::size_t>(std::uint64_t{canvasWidth} * canvasHeight + y / 2 * canvasWidth + x);
            if (isNv12) {
                canvas.at(target) = ReadSample(slot, frame.planes.at(1), row, column * 2);
                canvas.at(target + 1) = ReadSample(slot, frame.planes.at(1), row, column * 2 + 1);
            } else if (isPacked) {
                const ReferenceColor color = ReadColor(slot, frame.planes.at(0), redFirst, source);
                canvas.at(target) = color.U();
                canvas.at(target + 1) = color.V();
            } else {
                canvas.at(target) = ReadSample(slot, frame.planes.at(1), row, column);
                canvas.at(target + 1) = ReadSample(slot, frame.planes.at(2), row, column);
            }
        }
    }
    return canvas;
}

std::vector<std::uint8_t> ReferenceSnapshot(std::span<const std::uint8_t> frame, std::uint32_t width,
                                            std::uint32_t height) {
    const PlaneLayout luma{0, width};
    const PlaneLayout chroma{std::uint64_t{width} * height, width};
    std::vector<std::uint8_t> pixels;
    for (std::uint64_t y = 0; y < height; ++y) {
        for (std::uint64_t x = 0; x < width; ++x) {
            const std::array<std::uint8_t, 3> pixel =
                ReferencePixel(ReadSample(frame, luma, y, x), ReadSample(frame, chroma, y / 2, x / 2 * 2),
                               ReadSample(frame, chroma, y / 2, x / 2 * 2 + 1));
            pixels.insert(pixels.end(), pixel.begin(), pixel.end());
        }
    }
    return pixels;
}

} // namespace receiver
