// Converts the frame in a slot into the picture on the NV12 canvas: fitted, centered on black, rotated and mirrored as
// the frame's descriptor says. Pure: no Windows calls.
#pragma once

#include "frames/conversion/canvas.h"
#include "frames/conversion/frame_plan.h"
#include "frames/conversion/row_kernels.h"
#include "frames/frame_message.h"
#include "platform/hresult.h"

#include <cstdint>
#include <optional>
#include <span>

namespace receiver {

class FrameConverter {
public:
    explicit FrameConverter(const RowKernels& rowKernels = BestKernels()) noexcept : kernels(&rowKernels) {}

    // Makes `canvas` an NV12 frame (BT.601, limited range) of the given size, even and at most 4096, with the picture
    // of `slot` on it. `frame` is within the limits that ParseFrameDescriptor checks. The page may write to the slot in
    // the meantime: that can spoil the picture and nothing else.
    // MF_E_INVALIDMEDIATYPE: the format is not supported or lacks planes; the canvas is black.
    // E_INVALIDARG: the planes leave the slot; the canvas is unchanged.
    [[nodiscard]] HRESULT Convert(std::span<const std::uint8_t> slot, const FrameDescriptor& frame,
                                  std::uint32_t canvasWidth, std::uint32_t canvasHeight, FrameCanvas& canvas);

private:
    const RowKernels* kernels;
    std::optional<FramePlan> plan; // of the last frame; most frames repeat its geometry
    CacheLineAlignedBytes rowBuffer; // loaded rows before they are scaled or transposed
};

} // namespace receiver
