// The same conversions with other libraries, as an application would call them.
#pragma once

#include "bench/frame_cases.h"
#include "sample_camera/video_format.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace receiver {

// Converts a slot to a canvas of the case's size. `clearBars`: the bars beside the picture are made black each time.
using PeerConversion = std::function<void(const std::uint8_t* slot, std::uint8_t* canvas)>;

[[nodiscard]] PeerConversion LibyuvConversion(const FrameCase& frameCase, bool clearBars);
// Empty for what the library does not do: rotation, mirroring, and NV12 of the same size.
[[nodiscard]] PeerConversion SwscaleConversion(const FrameCase& frameCase, bool clearBars);

// NV12 to 3-byte pixels, blue first.
void LibyuvSnapshot(const std::uint8_t* frame, std::uint32_t width, std::uint32_t height, std::uint8_t* pixels);
[[nodiscard]] PeerConversion SwscaleSnapshot(std::uint32_t width, std::uint32_t height);

// What the sample camera does with an NV12 frame that it has copied from the frame file.
[[nodiscard]] PeerConversion LibyuvCamera(sample_camera::PictureSize frameSize,
                                          const sample_camera::VideoFormat& format);

} // namespace receiver
