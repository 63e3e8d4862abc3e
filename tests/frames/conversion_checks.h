// Searches for a difference between a table of kernels and the plain formulas. Each check describes the first that it
// finds, or returns nothing. A read or write outside the rows stops the program.
#pragma once

#include "frames/frame_kernels.h"
#include "frames/frame_message.h"

#include <cstdint>
#include <string>
#include <vector>

namespace receiver {

// A frame and its canvas, in one line.
[[nodiscard]] std::string Describe(const FrameDescriptor& frame, std::uint32_t canvasWidth, std::uint32_t canvasHeight);

// The tables that this processor can run.
[[nodiscard]] std::vector<const FrameKernels*> UsableKernels();

// Conversions of random frames: formats, rotations, flips, sizes, paddings, overlapping rows, slots that begin or end
// at an untouchable page. A seed stands for one geometry.
[[nodiscard]] std::string RandomGeometryDifference(const FrameKernels& kernels, std::uint32_t firstSeed,
                                                   std::uint32_t count);

// Luma and chroma of every colour, red or blue first, in the directions in which they are drawn.
[[nodiscard]] std::string ColourDifference(const FrameKernels& kernels);

// The snapshot's pixel for every Y, U and V.
[[nodiscard]] std::string SnapshotDifference(const FrameKernels& kernels);

// Each kernel on rows of the given number of samples against the plain kernels.
[[nodiscard]] std::string RowDifference(const FrameKernels& kernels, std::uint32_t sampleCount);

} // namespace receiver
