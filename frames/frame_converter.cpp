#include "frames/frame_converter.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

namespace receiver {
namespace {

constexpr std::size_t StripLines = 16;
// Source rows are asked for so many bytes ahead.
constexpr std::size_t PrefetchBytes = 4096;

std::size_t AlignUp(std::size_t size) noexcept { return (size + 63) / 64 * 64; }

// Room for one line on its way to the canvas: a source row's luma or its U,V pairs, the pixels that give a line its
// chroma, or the U and the V of a line.
std::size_t ScratchLineBytes(const FramePlan& plan) noexcept {
    return AlignUp(std::max(plan.geometry.codedWidth, plan.picture.width) * std::size_t{2});
}

std::size_t ScratchBytes(const FramePlan& plan) noexcept {
    return ScratchLineBytes(plan) * (plan.sideways ? StripLines : 1);
}

// The source rows behind the lines of luma or chroma.
struct Lines {
    const std::uint32_t* addresses;
    const std::uint32_t* addressesV; // of the planar layout's second chroma plane
    std::size_t step; // addresses per line
    std::size_t count;

    [[nodiscard]] std::size_t Address(std::size_t line) const noexcept { return addresses[line * step]; }
    [[nodiscard]] std::size_t AddressV(std::size_t line) const noexcept { return addressesV[line * step]; }
    [[nodiscard]] bool RepeatsPrevious(std::size_t line) const noexcept {
        return line > 0 && Address(line) == Address(line - 1) && AddressV(line) == AddressV(line - 1);
    }
    [[nodiscard]] bool FollowEachOther(std::size_t pitch) const noexcept {
        for (std::size_t line = 1; line < count; ++line) {
            if (Address(line) != Address(line - 1) + pitch) {
                return false;
            }
        }
        return true;
    }
};

// Draws one frame by its plan.
class Drawing {
public:
    Drawing(const FrameKernels& kernels, const FramePlan& plan, const std::uint8_t* slot, FrameCanvas& canvas,
            std::uint8_t* scratch) noexcept
        : kernels_(kernels), plan_(plan), layout_(plan.geometry.layout),
          sourceWidth_(plan.geometry.codedWidth), pixelOrder_{.redFirst = layout_ == PixelLayout::Rgba,
                                                              .mirrored = false},
          slot_(slot), pitch_(plan.geometry.canvasWidth),
          luma_(canvas.Luma() + plan.picture.y * pitch_ + plan.picture.x),
          chroma_(canvas.Chroma() + plan.picture.y / 2 * pitch_ + plan.picture.x), scratch_(scratch),
          rowsAhead_(PrefetchBytes / (IsPacked(layout_) ? 4 * sourceWidth_ : sourceWidth_) + 1),
          lumaRow_(plan.lumaPattern.Shuffle()), chromaRow_(plan.chromaPattern.Shuffle()) {
        if (IsPacked(layout_) && !plan.sideways && (plan.lumaPattern.contiguous || plan.lumaPattern.mirrored) &&
            plan.picture.width == sourceWidth_) {
            wholeRows_ = true;
            pixelOrder_.mirrored = plan.lumaPattern.mirrored;
        }
    }

    void Draw() noexcept {
        const Lines luma = LinesOf(plan_.luma, plan_.luma, 1);
        const Lines chroma = layout_ == PixelLayout::Nv12     ? LinesOf(plan_.chromaU, plan_.chromaU, 1)
                             : layout_ == PixelLayout::Planar ? LinesOf(plan_.chromaU, plan_.chromaV, 1)
                                                              : LinesOf(plan_.luma, plan_.luma, 2);
        if (plan_.sideways) {
            DrawSideways(luma, chroma);
        } else {
            DrawUpright(luma, chroma);
        }
    }

private:
    // Draws a line at `drawn` and, unless that is null, at `twin`.
    using DrawLine = void (Drawing::*)(const Lines& lines, std::size_t line, std::uint8_t* drawn,
                                       std::uint8_t* twin) const noexcept;

    [[nodiscard]] Lines LinesOf(const SampleAddresses& plane, const SampleAddresses& planeV,
                                std::size_t step) const noexcept {
        const std::vector<std::uint32_t>& addresses = plan_.sideways ? plane.x : plane.y;
        const std::vector<std::uint32_t>& addressesV = plan_.sideways ? planeV.x : planeV.y;
        return {addresses.data(), addressesV.data(), step, addresses.size() / step};
    }

    void DrawUpright(const Lines& luma, const Lines& chroma) const noexcept {
        if (!IsPacked(layout_)) {
            DrawPlane(luma, plan_.lumaPattern.contiguous, luma_, &Drawing::DrawLumaLine);
            DrawPlane(chroma, layout_ == PixelLayout::Nv12 && plan_.chromaPattern.contiguous, chroma_,
                      &Drawing::DrawChromaLine);
            return;
        }
        for (std::size_t line = 0; line < luma.count; line += 2) { // both while the source row is in the cache
            DrawRows(luma, line, line + 2, luma_, &Drawing::DrawLumaLine);
            DrawRows(chroma, line / 2, line / 2 + 1, chroma_, &Drawing::DrawChromaLine);
        }
    }

    // Copied in one go, if the plane lies in the slot as on the canvas.
    void DrawPlane(const Lines& lines, bool rowsAreCopied, std::uint8_t* drawn, DrawLine drawLine) const noexcept {
        if (rowsAreCopied && plan_.picture.width == pitch_ && lines.FollowEachOther(pitch_)) {
            kernels_.copy(slot_ + lines.Address(0), pitch_ * lines.count, drawn);
            return;
        }
        DrawRows(lines, 0, lines.count, drawn, drawLine);
    }

    void DrawRows(const Lines& lines, std::size_t first, std::size_t end, std::uint8_t* plane,
                  DrawLine drawLine) const noexcept {
        for (std::size_t line = first; line < end; ++line) {
            std::uint8_t* const drawn = plane + line * pitch_;
            if (lines.RepeatsPrevious(line)) {
                kernels_.copy(drawn - pitch_, plan_.picture.width, drawn);
                continue;
            }
            const bool twins = line + 1 < end && lines.RepeatsPrevious(line + 1);
            (this->*drawLine)(lines, line, drawn, twins ? drawn + pitch_ : nullptr);
            line += twins ? 1 : 0;
        }
    }

    void DrawLumaLine(const Lines& lines, std::size_t line, std::uint8_t* drawn, std::uint8_t* twin) const noexcept {
        const std::uint8_t* const source = slot_ + lines.Address(line);
        const std::uint8_t* const next = slot_ + lines.Address(Next(lines, line));
        if (!IsPacked(layout_)) {
            Spread(plan_.lumaPattern, lumaRow_, source, next, drawn, twin);
        } else if (wholeRows_) {
            kernels_.luma(source, next, sourceWidth_, pixelOrder_, drawn);
            CopyToTwin(drawn, twin);
        } else {
            kernels_.luma(source, next, sourceWidth_, pixelOrder_, scratch_);
            Spread(plan_.lumaPattern, lumaRow_, scratch_, scratch_, drawn, twin);
        }
    }

    void DrawChromaLine(const Lines& lines, std::size_t line, std::uint8_t* drawn, std::uint8_t* twin) const noexcept {
        const RowPattern& pattern = plan_.chromaPattern;
        const std::uint8_t* const source = slot_ + lines.Address(line);
        const std::uint8_t* const next = slot_ + lines.Address(Next(lines, line));
        const std::uint32_t pairCount = plan_.picture.width / 2;
        if (layout_ == PixelLayout::Nv12) {
            Spread(pattern, chromaRow_, source, next, drawn, twin);
            return;
        }
        if (layout_ == PixelLayout::Planar) {
            const std::uint8_t* u = source;
            const std::uint8_t* v = slot_ + lines.AddressV(line);
            if (!pattern.contiguous) {
                kernels_.spread(chromaRow_, u, next, scratch_, nullptr);
                kernels_.spread(chromaRow_, v, slot_ + lines.AddressV(Next(lines, line)), scratch_ + pairCount,
                                nullptr);
                u = scratch_;
                v = scratch_ + pairCount;
            }
            kernels_.interleave(u, v, pairCount, drawn);
        } else if (wholeRows_) {
            kernels_.chroma(source, sourceWidth_, true, pixelOrder_, drawn);
        } else {
            Spread(pattern, chromaRow_, source, source, scratch_, nullptr);
            kernels_.chroma(scratch_, pairCount, false, pixelOrder_, drawn);
        }
        CopyToTwin(drawn, twin);
    }

    void Spread(const RowPattern& pattern, const RowShuffle& row, const std::uint8_t* source, const std::uint8_t* next,
                std::uint8_t* drawn, std::uint8_t* twin) const noexcept {
        if (pattern.contiguous) {
            kernels_.copy(source, row.byteCount, drawn);
            CopyToTwin(drawn, twin);
        } else {
            kernels_.spread(row, source, next, drawn, twin);
        }
    }

    void CopyToTwin(const std::uint8_t* drawn, std::uint8_t* twin) const noexcept {
        if (twin != nullptr) {
            kernels_.copy(drawn, plan_.picture.width, twin);
        }
    }

    // The line whose source row is to be asked for now.
    [[nodiscard]] std::size_t Next(const Lines& lines, std::size_t line) const noexcept {
        return std::min(line + rowsAhead_, lines.count - 1);
    }

    void DrawSideways(const Lines& luma, const Lines& chroma) const noexcept {
        if (IsPacked(layout_)) {
            DrawStrips(luma, chroma);
            return;
        }
        const auto lumaLines = static_cast<std::uint32_t>(luma.count);
        kernels_.turnBytes(lumaRow_, slot_, luma.addresses, lumaLines, luma_, pitch_);
        if (layout_ == PixelLayout::Nv12) {
            kernels_.turnPairs(chromaRow_, slot_, chroma.addresses, lumaLines / 2, chroma_, pitch_);
        } else {
            DrawStrips({}, chroma);
        }
    }

    // Strips of lines that do not lie in the slot as they are drawn: whole source rows of luma and of U,V pairs are
    // made of them first. Without luma lines only the chroma is drawn.
    void DrawStrips(const Lines& luma, const Lines& chroma) const noexcept {
        const std::size_t pairLines = std::min(StripLines / 2, chroma.count);
        for (std::size_t strip = 0; strip < chroma.count; strip += pairLines) {
            // The last strip may overlap the one before.
            const std::size_t first = std::min(strip, chroma.count - pairLines);
            if (luma.count > 0) {
                DrawStrip(luma, 2 * first, 2 * pairLines, lumaRow_, kernels_.turnBytes, luma_ + 2 * first,
                          &Drawing::MakeLuma);
            }
            DrawStrip(chroma, first, pairLines, chromaRow_, kernels_.turnPairs, chroma_ + 2 * first,
                      &Drawing::MakePairs);
        }
    }

    using MakeRow = void (Drawing::*)(const Lines& lines, std::size_t line, std::uint8_t* row) const noexcept;

    void MakeLuma(const Lines& lines, std::size_t line, std::uint8_t* row) const noexcept {
        const std::uint8_t* const next = slot_ + lines.Address(Next(lines, line));
        kernels_.luma(slot_ + lines.Address(line), next, sourceWidth_, pixelOrder_, row);
    }
    void MakePairs(const Lines& lines, std::size_t line, std::uint8_t* row) const noexcept {
        if (IsPacked(layout_)) {
            kernels_.chroma(slot_ + lines.Address(line), sourceWidth_, false, pixelOrder_, row);
        } else {
            kernels_.interleave(slot_ + lines.Address(line), slot_ + lines.AddressV(line), sourceWidth_ / 2, row);
        }
    }

    void DrawStrip(const Lines& lines, std::size_t first, std::size_t count, const RowShuffle& row,
                   decltype(FrameKernels::turnBytes) turn, std::uint8_t* drawn, MakeRow makeRow) const noexcept {
        const auto rowBytes = static_cast<std::uint32_t>(ScratchLineBytes(plan_));
        std::array<std::uint32_t, StripLines> rows{};
        std::uint32_t at = 0;
        for (std::size_t i = 0; i < count; ++i) {
            if (i == 0 || !lines.RepeatsPrevious(first + i)) {
                at = static_cast<std::uint32_t>(i) * rowBytes;
                (this->*makeRow)(lines, first + i, scratch_ + at);
            }
            rows[i] = at;
        }
        turn(row, scratch_, rows.data(), static_cast<std::uint32_t>(count), drawn, pitch_);
    }

    const FrameKernels& kernels_;
    const FramePlan& plan_;
    PixelLayout layout_;
    std::uint32_t sourceWidth_;
    PixelOrder pixelOrder_;
    bool wholeRows_ = false; // packed, and each row is drawn with all its pixels, maybe mirrored
    const std::uint8_t* slot_;
    std::size_t pitch_; // of the canvas
    std::uint8_t* luma_; // of the picture
    std::uint8_t* chroma_;
    std::uint8_t* scratch_;
    std::size_t rowsAhead_; // to be asked for now
    RowShuffle lumaRow_;
    RowShuffle chromaRow_;
};

} // namespace

HRESULT FrameConverter::Convert(std::span<const std::uint8_t> slot, const FrameDescriptor& descriptor,
                                std::uint32_t canvasWidth, std::uint32_t canvasHeight, FrameCanvas& canvas) {
    const std::optional<PixelLayout> layout = RecognizeFormat(descriptor.format, descriptor.planeCount);
    if (!layout) {
        canvas.Prepare(canvasWidth, canvasHeight, {});
        return MF_E_INVALIDMEDIATYPE;
    }
    const FrameGeometry geometry = MakeGeometry(descriptor, *layout, canvasWidth, canvasHeight);
    if (!FitsSlot(geometry, slot.size())) {
        return E_INVALIDARG;
    }
    if (geometry != plan_.geometry) {
        BuildPlan(geometry, plan_);
    }
    if (scratch_.size() < ScratchBytes(plan_)) {
        scratch_.resize(ScratchBytes(plan_));
    }
    canvas.Prepare(canvasWidth, canvasHeight, plan_.picture);
    Drawing(*kernels_, plan_, slot.data(), canvas, scratch_.data()).Draw();
    return S_OK;
}

} // namespace receiver
