// The sample camera's formats as DirectShow's media types.
#pragma once

#include "sample_camera/direct_show.h"
#include "sample_camera/video_format.h"

#include <cstdint>
#include <optional>

namespace sample_camera {

struct StreamFormat {
    VideoFormat video;
    std::int64_t interval100ns; // from one frame to the next
};

// Describes `format` in `type`, which the caller frees with FreeMediaType.
[[nodiscard]] HRESULT MakeMediaType(const StreamFormat& format, AM_MEDIA_TYPE& type) noexcept;
void FreeMediaType(AM_MEDIA_TYPE& type) noexcept;

// The same in memory of its own, as clients expect it: they free the format and then the type with CoTaskMemFree.
[[nodiscard]] HRESULT NewMediaType(const StreamFormat& format, AM_MEDIA_TYPE** type) noexcept;

// The format that a complete media type describes, its interval limited to what the camera offers; empty when the
// camera does not offer it.
[[nodiscard]] std::optional<StreamFormat> ParseMediaType(const AM_MEDIA_TYPE& type) noexcept;

// `format` if `wanted` asks for it, with the interval of `wanted` if that is complete; else empty. GUID_NULL in
// `wanted` stands for anything.
[[nodiscard]] std::optional<StreamFormat> Match(const StreamFormat& format, const AM_MEDIA_TYPE& wanted) noexcept;

} // namespace sample_camera
