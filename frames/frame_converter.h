// Draws the picture in a frame slot onto the NV12 canvas: fitted, centred on black, rotated and mirrored as the frame's
// descriptor says. Pure: no Windows calls.
#pragma once

#include "frames/frame_canvas.h"
#include "frames/frame_kernels.h"
#include "frames/frame_plan.h"
#include "platform/hresult.h"

#include <cstdint>
#include <span>

namespace receiver {

class FrameConverter {
public:
    explicit FrameConverter(const FrameKernels& kernels = BestKernels()) noexcept : kernels_(&kernels) {}

    // Draws `slot` onto `canvas`, which becomes canvasWidth * canvasHeight * 3 / 2 bytes of NV12 (BT.601, limited
    // range). The page may write to the slot meanwhile; that can spoil the picture and nothing else.
    // MF_E_INVALIDMEDIATYPE: the format is not supported or lacks planes; the canvas is black.
    // E_INVALIDARG: the planes leave the slot; the canvas is untouched.
    [[nodiscard]] HRESULT Convert(std::span<const std::uint8_t> slot, const FrameDescriptor& descriptor,
                                  std::uint32_t canvasWidth, std::uint32_t canvasHeight, FrameCanvas& canvas);

private:
    const FrameKernels* kernels_;
    FramePlan plan_; // of the last geometry; most frames repeat it
    LineAlignedBytes scratch_; // for lines on their way to the canvas
};

} // namespace receiver
