#include "frames/frame_converter.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace receiver {
namespace {

constexpr std::uint8_t BlackLuma = 16;
constexpr std::uint8_t NeutralChroma = 128;

void ClearCanvas(std::uint32_t width, std::uint32_t height, std::vector<std::uint8_t>& canvas) {
    const std::size_t lumaSize = static_cast<std::size_t>(width) * height;
    canvas.resize(lumaSize * 3 / 2);
    const auto chroma = canvas.begin() + static_cast<std::ptrdiff_t>(lumaSize);
    std::fill(canvas.begin(), chroma, BlackLuma);
    std::fill(chroma, canvas.end(), NeutralChroma);
}

// The picture's place on the canvas, by picture row.
class CanvasPicture {
public:
    CanvasPicture(const FramePlan& plan, std::vector<std::uint8_t>& canvas) noexcept
        : canvasWidth_(plan.geometry.canvasWidth), picture_(plan.picture), luma_(canvas.data()),
          chroma_(canvas.data() + static_cast<std::size_t>(canvasWidth_) * plan.geometry.canvasHeight) {}

    [[nodiscard]] std::uint8_t* LumaRow(std::size_t row) const noexcept {
        return luma_ + (picture_.y + row) * canvasWidth_ + picture_.x;
    }
    // `row` counts chroma rows: U,V pairs, one for two picture columns.
    [[nodiscard]] std::uint8_t* ChromaRow(std::size_t row) const noexcept {
        return chroma_ + (picture_.y / 2 + row) * canvasWidth_ + picture_.x;
    }

private:
    std::size_t canvasWidth_;
    PictureRectangle picture_;
    std::uint8_t* luma_;
    std::uint8_t* chroma_;
};

void DrawLuma(const std::uint8_t* slot, const SampleAddresses& samples, const CanvasPicture& picture) noexcept {
    for (std::size_t j = 0; j < samples.y.size(); ++j) {
        const std::uint8_t* const source = slot + samples.y[j];
        std::uint8_t* const row = picture.LumaRow(j);
        for (std::size_t i = 0; i < samples.x.size(); ++i) {
            row[i] = source[samples.x[i]];
        }
    }
}

void DrawPairedChroma(const std::uint8_t* slot, const SampleAddresses& pairs, const CanvasPicture& picture) noexcept {
    for (std::size_t j = 0; j < pairs.y.size(); ++j) {
        const std::uint8_t* const source = slot + pairs.y[j];
        std::uint8_t* const row = picture.ChromaRow(j);
        for (std::size_t i = 0; i < pairs.x.size(); ++i) {
            row[2 * i] = source[pairs.x[i]];
            row[2 * i + 1] = source[pairs.x[i] + 1];
        }
    }
}

void DrawPlanarChroma(const std::uint8_t* slot, const SampleAddresses& u, const SampleAddresses& v,
                      const CanvasPicture& picture) noexcept {
    for (std::size_t j = 0; j < u.y.size(); ++j) {
        const std::uint8_t* const sourceU = slot + u.y[j];
        const std::uint8_t* const sourceV = slot + v.y[j];
        std::uint8_t* const row = picture.ChromaRow(j);
        for (std::size_t i = 0; i < u.x.size(); ++i) {
            row[2 * i] = sourceU[u.x[i]];
            row[2 * i + 1] = sourceV[v.x[i]];
        }
    }
}

// BT.601 limited range in 8-bit fixed point. The sums stay inside their ranges: luma 16..235, chroma 16..240.
std::uint8_t LumaOf(int r, int g, int b) noexcept {
    return static_cast<std::uint8_t>(((66 * r + 129 * g + 25 * b + 128) >> 8) + 16);
}
std::uint8_t ChromaUOf(int r, int g, int b) noexcept {
    return static_cast<std::uint8_t>(std::clamp(((-38 * r - 74 * g + 112 * b + 128) >> 8) + 128, 0, 255));
}
std::uint8_t ChromaVOf(int r, int g, int b) noexcept {
    return static_cast<std::uint8_t>(std::clamp(((112 * r - 94 * g - 18 * b + 128) >> 8) + 128, 0, 255));
}

void DrawPacked(const std::uint8_t* slot, const SampleAddresses& pixels, bool redFirst,
                const CanvasPicture& picture) noexcept {
    const std::size_t redByte = redFirst ? 0 : 2;
    const std::size_t blueByte = redFirst ? 2 : 0;
    for (std::size_t j = 0; j < pixels.y.size(); ++j) {
        const std::uint8_t* const source = slot + pixels.y[j];
        std::uint8_t* const lumaRow = picture.LumaRow(j);
        // The top left pixel of each 2 x 2 block gives the block's colour.
        std::uint8_t* const chromaRow = j % 2 == 0 ? picture.ChromaRow(j / 2) : nullptr;
        for (std::size_t i = 0; i < pixels.x.size(); ++i) {
            const std::uint8_t* const pixel = source + pixels.x[i];
            const int r = pixel[redByte];
            const int g = pixel[1];
            const int b = pixel[blueByte];
            lumaRow[i] = LumaOf(r, g, b);
            if (chromaRow != nullptr && i % 2 == 0) {
                chromaRow[i] = ChromaUOf(r, g, b);
                chromaRow[i + 1] = ChromaVOf(r, g, b);
            }
        }
    }
}

} // namespace

HRESULT FrameConverter::Convert(std::span<const std::uint8_t> slot, const FrameDescriptor& descriptor,
                                std::uint32_t canvasWidth, std::uint32_t canvasHeight,
                                std::vector<std::uint8_t>& canvas) {
    const std::optional<PixelLayout> layout = RecognizeFormat(descriptor.format, descriptor.planes.size());
    if (!layout) {
        ClearCanvas(canvasWidth, canvasHeight, canvas);
        return MF_E_INVALIDMEDIATYPE;
    }
    const FrameGeometry geometry = MakeGeometry(descriptor, *layout, canvasWidth, canvasHeight);
    if (!FitsSlot(geometry, slot.size())) {
        return E_INVALIDARG;
    }
    if (geometry != plan_.geometry) {
        BuildPlan(geometry, plan_);
    }
    ClearCanvas(canvasWidth, canvasHeight, canvas);

    const CanvasPicture picture(plan_, canvas);
    switch (*layout) {
    case PixelLayout::Nv12:
        DrawLuma(slot.data(), plan_.luma, picture);
        DrawPairedChroma(slot.data(), plan_.chromaU, picture);
        break;
    case PixelLayout::Planar:
        DrawLuma(slot.data(), plan_.luma, picture);
        DrawPlanarChroma(slot.data(), plan_.chromaU, plan_.chromaV, picture);
        break;
    case PixelLayout::Rgba:
    case PixelLayout::Bgra:
        DrawPacked(slot.data(), plan_.luma, *layout == PixelLayout::Rgba, picture);
        break;
    }
    return S_OK;
}

} // namespace receiver
