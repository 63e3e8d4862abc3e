#include "tests/rig/recorder/media_types.h"

#include "tests/rig/runtime/text_lines.h"

#include "platform/hresult.h"

#include <mfapi.h>

#include <algorithm>
#include <cctype>
#include <string_view>

namespace rig {
namespace {

struct AttributeName {
    const GUID& key;
    std::string_view name;
};
const AttributeName AttributeNames[] = {
    {MF_MT_MAJOR_TYPE, "majorType"},
    {MF_MT_SUBTYPE, "subtype"},
    {MF_MT_AVG_BITRATE, "averageBitRate"},
    {MF_MT_INTERLACE_MODE, "interlaceMode"},
    {MF_MT_FRAME_SIZE, "frameSize"},
    {MF_MT_FRAME_RATE, "frameRate"},
    {MF_MT_PIXEL_ASPECT_RATIO, "pixelAspectRatio"},
};

UINT32 High(UINT64 pair) { return static_cast<UINT32>(pair >> 32); }
UINT32 Low(UINT64 pair) { return static_cast<UINT32>(pair); }

std::string GuidText(const GUID& id) {
    wchar_t text[40];
    StringFromGUID2(id, text, ARRAYSIZE(text));
    return ToUtf8(text);
}

std::string KeyText(const GUID& key) {
    const auto* const found = std::find_if(std::begin(AttributeNames), std::end(AttributeNames),
                                           [&](const AttributeName& each) { return each.key == key; });
    return found != std::end(AttributeNames) ? std::string(found->name) : GuidText(key);
}

// Media types are made of four characters and a common rest.
std::string MediaTypeText(const GUID& type) {
    std::string text;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        text += static_cast<char>(type.Data1 >> shift);
    }
    const bool isReadable =
        std::all_of(text.begin(), text.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; });
    return isReadable ? text : GuidText(type);
}

std::string ValueText(const PROPVARIANT& value) {
    switch (value.vt) {
    case VT_UI4:
        return std::to_string(value.ulVal);
    case VT_UI8:
        return std::to_string(High(value.uhVal.QuadPart)) + ':' + std::to_string(Low(value.uhVal.QuadPart));
    case VT_CLSID:
        return MediaTypeText(*value.puuid);
    default:
        return "type-" + std::to_string(value.vt);
    }
}

HRESULT RequireGuid(IMFMediaType* type, const GUID& key, const GUID& wanted) {
    GUID value{};
    RETURN_IF_FAILED(type->GetGUID(key, &value));
    return value == wanted ? S_OK : MF_E_INVALIDMEDIATYPE;
}

HRESULT RequireProgressive(IMFMediaType* type) {
    UINT32 mode = 0;
    RETURN_IF_FAILED(type->GetUINT32(MF_MT_INTERLACE_MODE, &mode));
    return mode == MFVideoInterlace_Progressive ? S_OK : MF_E_INVALIDMEDIATYPE;
}

HRESULT RequireSame(IMFMediaType* type, IMFMediaType* other, const GUID& key) {
    UINT64 value = 0;
    RETURN_IF_FAILED(type->GetUINT64(key, &value));
    UINT64 wanted = 0;
    RETURN_IF_FAILED(other->GetUINT64(key, &wanted));
    return value == wanted ? S_OK : MF_E_INVALIDMEDIATYPE;
}

} // namespace

HRESULT CheckOutputType(IMFMediaType* type) {
    RETURN_IF_FAILED(RequireGuid(type, MF_MT_MAJOR_TYPE, MFMediaType_Video));
    RETURN_IF_FAILED(RequireGuid(type, MF_MT_SUBTYPE, MFVideoFormat_H264));
    RETURN_IF_FAILED(RequireProgressive(type));
    UINT64 size = 0;
    RETURN_IF_FAILED(type->GetUINT64(MF_MT_FRAME_SIZE, &size));
    UINT64 rate = 0;
    RETURN_IF_FAILED(type->GetUINT64(MF_MT_FRAME_RATE, &rate));
    UINT32 bitsPerSecond = 0;
    RETURN_IF_FAILED(type->GetUINT32(MF_MT_AVG_BITRATE, &bitsPerSecond));
    const bool isEvenSize = High(size) != 0 && Low(size) != 0 && High(size) % 2 == 0 && Low(size) % 2 == 0;
    const bool isUsable = isEvenSize && High(rate) != 0 && Low(rate) != 0 && bitsPerSecond != 0;
    return isUsable ? S_OK : MF_E_INVALIDMEDIATYPE;
}

HRESULT CheckInputType(IMFMediaType* type, IMFMediaType* outputType) {
    RETURN_IF_FAILED(RequireGuid(type, MF_MT_MAJOR_TYPE, MFMediaType_Video));
    RETURN_IF_FAILED(RequireGuid(type, MF_MT_SUBTYPE, MFVideoFormat_NV12));
    RETURN_IF_FAILED(RequireProgressive(type));
    RETURN_IF_FAILED(RequireSame(type, outputType, MF_MT_FRAME_SIZE));
    return RequireSame(type, outputType, MF_MT_FRAME_RATE);
}

UINT32 Nv12Bytes(IMFMediaType* type) {
    UINT64 size = 0;
    (void)type->GetUINT64(MF_MT_FRAME_SIZE, &size); // The type has been checked.
    return High(size) * Low(size) / 2 * 3;
}

std::string DescribeType(IMFMediaType* type) {
    std::string text;
    UINT32 count = 0;
    (void)type->GetCount(&count);
    for (UINT32 index = 0; index < count; ++index) {
        GUID key{};
        PROPVARIANT value{};
        if (SUCCEEDED(type->GetItemByIndex(index, &key, &value))) {
            if (!text.empty()) {
                text += ' ';
            }
            text.append(KeyText(key)).append("=").append(ValueText(value));
            PropVariantClear(&value);
        }
    }
    return text;
}

} // namespace rig
