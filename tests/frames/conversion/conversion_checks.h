// Searches for a difference between a table of kernels and the plain formulas. Each check describes the first
// difference that it finds, or returns an empty text. A read or write outside the rows stops the program.
#pragma once

#include "frames/conversion/row_kernels.h"
#include "frames/frame_message.h"

#include <cstdint>
#include <string>
#include <vector>

namespace receiver {

// A frame and its canvas, in one line.
[[nodiscard]] std::string Describe(const FrameDescriptor& frame, std::uint32_t canvasWidth, std::uint32_t canvasHeight);

// The tables that this processor can run.
[[nodiscard]] std::vector<const RowKernels*> UsableKernels();

// Conversions of random frames: formats, rotations, flips, sizes, paddings, overlapping rows, slots that begin or end
// at a page without access. A seed stands for one geometry.
[[nodiscard]] std::string RandomGeometryDifference(const RowKernels& kernels, std::uint32_t firstSeed,
                                                   std::uint32_t count);

// Y, U and V of every color, red or blue first.
[[nodiscard]] std::string ColorDifference(const RowKernels& kernels);

// The snapshot's pixel for every Y, U and V.
[[nodiscard]] std::string SnapshotDifference(const RowKernels& kernels);

// Each kernel on rows of the given number of samples against the plain kernels.
[[nodiscard]] std::string RowDifference(const RowKernels& kernels, std::uint32_t sampleCount);

} // namespace receiver
