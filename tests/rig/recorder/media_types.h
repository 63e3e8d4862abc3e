// What the sink writer requires of the media types of a video stream, and how it reports them.
#pragma once

#include <windows.h>

#include <mfidl.h>

#include <string>

namespace rig {

// The first code with which H.264 of this type cannot be written: MF_E_ATTRIBUTENOTFOUND for what is missing,
// MF_E_INVALIDMEDIATYPE for what is wrong.
[[nodiscard]] HRESULT CheckOutputType(IMFMediaType* type);
// The same for NV12 frames that go into a stream of a checked output type.
[[nodiscard]] HRESULT CheckInputType(IMFMediaType* type, IMFMediaType* outputType);

[[nodiscard]] UINT32 Nv12Bytes(IMFMediaType* type);

// All attributes as "subtype=H264 frameSize=1280:720 averageBitRate=6000000 ...", in the order of setting.
[[nodiscard]] std::string DescribeType(IMFMediaType* type);

} // namespace rig
