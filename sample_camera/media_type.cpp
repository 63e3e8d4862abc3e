#include "sample_camera/media_type.h"

#include <algorithm>
#include <cstring>

namespace sample_camera {
namespace {

// The subtype of a FOURCC, by DirectShow's rule.
GUID SubtypeOf(PixelFormat pixels) noexcept {
    return {FourCc(pixels), 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
}

constexpr std::int64_t UnitsPerSecond = 10000000;

} // namespace

HRESULT MakeMediaType(const StreamFormat& format, AM_MEDIA_TYPE& type) noexcept {
    auto* const info = static_cast<VIDEOINFOHEADER*>(CoTaskMemAlloc(sizeof(VIDEOINFOHEADER)));
    if (info == nullptr) {
        return E_OUTOFMEMORY;
    }
    const std::uint32_t imageBytes = ImageBytes(format.video);
    *info = {};
    info->dwBitRate = static_cast<DWORD>(std::int64_t{imageBytes} * 8 * UnitsPerSecond / format.interval100ns);
    info->AvgTimePerFrame = format.interval100ns;
    info->bmiHeader.biSize = sizeof(info->bmiHeader);
    info->bmiHeader.biWidth = static_cast<LONG>(format.video.size.width);
    info->bmiHeader.biHeight = static_cast<LONG>(format.video.size.height);
    info->bmiHeader.biPlanes = 1;
    info->bmiHeader.biBitCount = static_cast<WORD>(BitsPerPixel(format.video.pixels));
    info->bmiHeader.biCompression = FourCc(format.video.pixels);
    info->bmiHeader.biSizeImage = imageBytes;

    type = {};
    type.majortype = MEDIATYPE_Video;
    type.subtype = SubtypeOf(format.video.pixels);
    type.bFixedSizeSamples = TRUE;
    type.lSampleSize = imageBytes;
    type.formattype = FORMAT_VideoInfo;
    type.cbFormat = sizeof(*info);
    type.pbFormat = reinterpret_cast<BYTE*>(info);
    return S_OK;
}

void FreeMediaType(AM_MEDIA_TYPE& type) noexcept {
    CoTaskMemFree(type.pbFormat);
    type.pbFormat = nullptr;
    type.cbFormat = 0;
}

HRESULT NewMediaType(const StreamFormat& format, AM_MEDIA_TYPE** type) noexcept {
    auto* const made = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    if (made == nullptr) {
        return E_OUTOFMEMORY;
    }
    const HRESULT result = MakeMediaType(format, *made);
    if (FAILED(result)) {
        CoTaskMemFree(made);
        return result;
    }
    *type = made;
    return S_OK;
}

std::optional<StreamFormat> ParseMediaType(const AM_MEDIA_TYPE& type) noexcept {
    if (type.majortype != MEDIATYPE_Video || type.formattype != FORMAT_VideoInfo || type.pbFormat == nullptr ||
        type.cbFormat < sizeof(VIDEOINFOHEADER)) {
        return std::nullopt;
    }
    VIDEOINFOHEADER info;
    std::memcpy(&info, type.pbFormat, sizeof(info));
    for (const VideoFormat& format : VideoFormats) {
        if (type.subtype == SubtypeOf(format.pixels) &&
            info.bmiHeader.biWidth == static_cast<LONG>(format.size.width) &&
            info.bmiHeader.biHeight == static_cast<LONG>(format.size.height)) {
            return StreamFormat{
                format, std::clamp<std::int64_t>(info.AvgTimePerFrame, ShortestInterval100ns, LongestInterval100ns)};
        }
    }
    return std::nullopt;
}

std::optional<StreamFormat> Match(const StreamFormat& format, const AM_MEDIA_TYPE& wanted) noexcept {
    const auto isOrAny = [](const GUID& asked, const GUID& offered) { return asked == GUID_NULL || asked == offered; };
    if (!isOrAny(wanted.majortype, MEDIATYPE_Video) || !isOrAny(wanted.subtype, SubtypeOf(format.video.pixels)) ||
        !isOrAny(wanted.formattype, FORMAT_VideoInfo)) {
        return std::nullopt;
    }
    if (wanted.formattype == GUID_NULL || wanted.pbFormat == nullptr) {
        return format;
    }
    const std::optional<StreamFormat> complete = ParseMediaType(wanted);
    return complete && complete->video == format.video ? complete : std::nullopt;
}

} // namespace sample_camera
