#include "sample_camera/camera_pin.h"

#include "platform/hresult.h"
#include "sample_camera/camera_filter.h"
#include "sample_camera/enumerators.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

namespace sample_camera {
namespace {

constexpr wchar_t PinName[] = L"Capture";
constexpr LONG BufferCount = 4; // one is filled while others are on their way through the graph
constexpr LONG BufferAlignment = 32;

} // namespace

struct CameraPin::Offer {
    std::array<StreamFormat, VideoFormats.size()> formats;
    ULONG count;
};

// What the enumerator of media types lists: the offer of the moment at which it was made.
class CameraPin::MediaTypes {
public:
    using Item = AM_MEDIA_TYPE*;

    explicit MediaTypes(const Offer& listed) noexcept : offer(listed) {}
    [[nodiscard]] ULONG Count() const noexcept { return offer.count; }
    [[nodiscard]] HRESULT Get(ULONG index, AM_MEDIA_TYPE** type) const noexcept {
        return NewMediaType(offer.formats[index], type);
    }

private:
    Offer offer;
};

StreamTarget CameraPin::Target() const noexcept {
    const std::lock_guard guard(lock);
    return {input, allocator, connectedFormat};
}

ComPtr<IPin> CameraPin::Peer() const noexcept {
    const std::lock_guard guard(lock);
    return peer;
}

CameraPin::Offer CameraPin::Offered() const noexcept {
    const std::lock_guard guard(lock);
    Offer offer{{}, 1};
    offer.formats[0] = format;
    if (!chosen) {
        offer.count = 0;
        for (const VideoFormat& video : VideoFormats) {
            offer.formats[offer.count++] = {video, ShortestInterval100ns};
        }
    }
    return offer;
}

HRESULT CameraPin::QueryInterface(REFIID id, void** object) noexcept {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (id == IID_IUnknown || id == IID_IPin) {
        *object = static_cast<IPin*>(this);
    } else if (id == IID_IAMStreamConfig) {
        *object = static_cast<IAMStreamConfig*>(this);
    } else if (id == IID_IKsPropertySet) {
        *object = static_cast<IKsPropertySet*>(this);
    } else if (id == IID_IQualityControl) {
        *object = static_cast<IQualityControl*>(this);
    } else {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

ULONG CameraPin::AddRef() noexcept { return filter.AddRef(); }

ULONG CameraPin::Release() noexcept { return filter.Release(); }

HRESULT CameraPin::Connect(IPin* receivePin, const AM_MEDIA_TYPE* wanted) noexcept {
    if (receivePin == nullptr) {
        return E_POINTER;
    }
    const std::lock_guard transition(filter.Transition());
    if (filter.IsActive()) {
        return VFW_E_NOT_STOPPED;
    }
    if (Peer()) {
        return VFW_E_ALREADY_CONNECTED;
    }
    PIN_DIRECTION direction{};
    RETURN_IF_FAILED(receivePin->QueryDirection(&direction));
    if (direction != PINDIR_INPUT) {
        return VFW_E_INVALID_DIRECTION;
    }
    HRESULT result = VFW_E_NO_ACCEPTABLE_TYPES;
    const Offer offer = Offered();
    for (ULONG i = 0; i < offer.count; ++i) {
        const StreamFormat& offered = offer.formats[i];
        if (const auto match = wanted != nullptr ? Match(offered, *wanted) : std::optional(offered)) {
            result = TryConnect(*receivePin, *match);
            if (SUCCEEDED(result)) {
                return S_OK;
            }
        }
    }
    return result;
}

HRESULT CameraPin::TryConnect(IPin& receivePin, const StreamFormat& offered) noexcept {
    ComPtr<IMemInputPin> memInput;
    RETURN_IF_FAILED(receivePin.QueryInterface(IID_IMemInputPin, memInput.PutVoid()));
    AM_MEDIA_TYPE type;
    RETURN_IF_FAILED(MakeMediaType(offered, type));
    HRESULT result = receivePin.ReceiveConnection(this, &type);
    FreeMediaType(type);
    RETURN_IF_FAILED(result);
    ComPtr<IMemAllocator> newAllocator;
    result = MakeAllocator(*memInput.Get(), offered, newAllocator);
    if (FAILED(result)) {
        (void)receivePin.Disconnect(); // as if it had never accepted
        return result;
    }
    const std::lock_guard guard(lock);
    peer = ComPtr<IPin>(&receivePin);
    input = std::move(memInput);
    allocator = std::move(newAllocator);
    connectedFormat = offered;
    format = offered;
    return S_OK;
}

// Always the camera's own: an allocator of the receiving filter could change the format of single samples.
HRESULT CameraPin::MakeAllocator(IMemInputPin& input, const StreamFormat& format,
                                 ComPtr<IMemAllocator>& allocator) noexcept {
    ALLOCATOR_PROPERTIES wanted{};
    if (FAILED(input.GetAllocatorRequirements(&wanted))) { // many inputs have none
        wanted = {};
    }
    wanted.cBuffers = std::max(wanted.cBuffers, BufferCount);
    wanted.cbBuffer = std::max(wanted.cbBuffer, static_cast<LONG>(ImageBytes(format.video)));
    wanted.cbAlign = std::max(wanted.cbAlign, BufferAlignment);
    RETURN_IF_FAILED(
        CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator, allocator.PutVoid()));
    ALLOCATOR_PROPERTIES actual{};
    RETURN_IF_FAILED(allocator->SetProperties(&wanted, &actual));
    return input.NotifyAllocator(allocator.Get(), FALSE);
}

HRESULT CameraPin::Disconnect() noexcept {
    const std::lock_guard transition(filter.Transition());
    if (filter.IsActive()) {
        return VFW_E_NOT_STOPPED;
    }
    ComPtr<IPin> oldPeer; // released below, when `lock` is not held
    ComPtr<IMemInputPin> oldInput;
    ComPtr<IMemAllocator> oldAllocator;
    const std::lock_guard guard(lock);
    oldPeer = std::move(peer);
    oldInput = std::move(input);
    oldAllocator = std::move(allocator);
    return oldPeer ? S_OK : S_FALSE;
}

HRESULT CameraPin::ConnectedTo(IPin** connectedPin) noexcept {
    if (connectedPin == nullptr) {
        return E_POINTER;
    }
    const ComPtr<IPin> connected = Peer();
    *connectedPin = connected.Get();
    if (!connected) {
        return VFW_E_NOT_CONNECTED;
    }
    connected->AddRef();
    return S_OK;
}

HRESULT CameraPin::ConnectionMediaType(AM_MEDIA_TYPE* type) noexcept {
    if (type == nullptr) {
        return E_POINTER;
    }
    *type = {};
    const StreamTarget target = Target();
    return target.input ? MakeMediaType(target.format, *type) : VFW_E_NOT_CONNECTED;
}

HRESULT CameraPin::QueryPinInfo(PIN_INFO* info) noexcept {
    if (info == nullptr) {
        return E_POINTER;
    }
    *info = {&filter, PINDIR_OUTPUT, {}};
    filter.AddRef();
    std::copy(std::begin(PinName), std::end(PinName), info->achName);
    return S_OK;
}

HRESULT CameraPin::QueryDirection(PIN_DIRECTION* direction) noexcept {
    if (direction == nullptr) {
        return E_POINTER;
    }
    *direction = PINDIR_OUTPUT;
    return S_OK;
}

HRESULT CameraPin::QueryId(LPWSTR* id) noexcept {
    if (id == nullptr) {
        return E_POINTER;
    }
    *id = static_cast<LPWSTR>(CoTaskMemAlloc(sizeof(PinName)));
    if (*id == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::memcpy(*id, PinName, sizeof(PinName));
    return S_OK;
}

HRESULT CameraPin::QueryAccept(const AM_MEDIA_TYPE* type) noexcept {
    if (type == nullptr) {
        return E_POINTER;
    }
    return ParseMediaType(*type) ? S_OK : S_FALSE;
}

HRESULT CameraPin::EnumMediaTypes(IEnumMediaTypes** types) noexcept {
    return Enumerator<IEnumMediaTypes, IID_IEnumMediaTypes, MediaTypes>::Make(MediaTypes(Offered()), 0, types);
}

HRESULT CameraPin::SetFormat(AM_MEDIA_TYPE* type) noexcept {
    ComPtr<IPin> connected;
    {
        const std::lock_guard transition(filter.Transition());
        if (filter.IsActive()) {
            return VFW_E_NOT_STOPPED;
        }
        std::optional<StreamFormat> wanted;
        if (type != nullptr) {
            wanted = ParseMediaType(*type);
            if (!wanted) {
                return VFW_E_INVALIDMEDIATYPE;
            }
        }
        connected = Peer();
        if (connected && type != nullptr && connected->QueryAccept(type) != S_OK) {
            return VFW_E_INVALIDMEDIATYPE;
        }
        const std::lock_guard guard(lock);
        chosen = wanted.has_value(); // without a type every format is offered again
        format = wanted.value_or(StreamFormat{VideoFormats[0], ShortestInterval100ns});
    }
    return connected ? filter.Reconnect() : S_OK;
}

HRESULT CameraPin::GetFormat(AM_MEDIA_TYPE** type) noexcept {
    if (type == nullptr) {
        return E_POINTER;
    }
    const std::lock_guard guard(lock);
    return NewMediaType(format, type);
}

HRESULT CameraPin::GetNumberOfCapabilities(int* count, int* size) noexcept {
    if (count == nullptr || size == nullptr) {
        return E_POINTER;
    }
    *count = static_cast<int>(VideoFormats.size());
    *size = sizeof(VIDEO_STREAM_CONFIG_CAPS);
    return S_OK;
}

HRESULT CameraPin::GetStreamCaps(int index, AM_MEDIA_TYPE** type, BYTE* capabilities) noexcept {
    if (type == nullptr || capabilities == nullptr) {
        return E_POINTER;
    }
    if (index < 0 || index >= static_cast<int>(VideoFormats.size())) {
        return index < 0 ? E_INVALIDARG : S_FALSE;
    }
    const VideoFormat& video = VideoFormats[static_cast<std::size_t>(index)];
    const SIZE size{static_cast<LONG>(video.size.width), static_cast<LONG>(video.size.height)};
    const auto bitsPerSecond = [&](std::int64_t interval100ns) {
        return static_cast<LONG>(std::int64_t{ImageBytes(video)} * 8 * 10000000 / interval100ns);
    };
    VIDEO_STREAM_CONFIG_CAPS caps{};
    caps.guid = FORMAT_VideoInfo;
    caps.InputSize = size;
    caps.MinCroppingSize = size;
    caps.MaxCroppingSize = size;
    caps.CropGranularityX = 1;
    caps.CropGranularityY = 1;
    caps.CropAlignX = 1;
    caps.CropAlignY = 1;
    caps.MinOutputSize = size;
    caps.MaxOutputSize = size;
    caps.OutputGranularityX = 1;
    caps.OutputGranularityY = 1;
    caps.MinFrameInterval = ShortestInterval100ns;
    caps.MaxFrameInterval = LongestInterval100ns;
    caps.MinBitsPerSecond = bitsPerSecond(LongestInterval100ns);
    caps.MaxBitsPerSecond = bitsPerSecond(ShortestInterval100ns);
    RETURN_IF_FAILED(NewMediaType({video, ShortestInterval100ns}, type));
    std::memcpy(capabilities, &caps, sizeof(caps));
    return S_OK;
}

HRESULT CameraPin::Get(REFGUID set, DWORD property, LPVOID /*instance*/, DWORD /*instanceSize*/, LPVOID data,
                       DWORD dataSize, DWORD* returned) noexcept {
    DWORD support = 0;
    RETURN_IF_FAILED(QuerySupported(set, property, &support));
    if (data == nullptr && returned == nullptr) {
        return E_POINTER;
    }
    if (returned != nullptr) {
        *returned = sizeof(GUID);
    }
    if (data != nullptr) {
        if (dataSize < sizeof(GUID)) {
            return E_UNEXPECTED;
        }
        std::memcpy(data, &PIN_CATEGORY_CAPTURE, sizeof(GUID));
    }
    return S_OK;
}

HRESULT CameraPin::QuerySupported(REFGUID set, DWORD property, DWORD* support) noexcept {
    constexpr auto SetUnknown = static_cast<HRESULT>(0x80070492L); // E_PROP_SET_UNSUPPORTED
    constexpr auto PropertyUnknown = static_cast<HRESULT>(0x80070490L); // E_PROP_ID_UNSUPPORTED
    if (set != AMPROPSETID_Pin) {
        return SetUnknown;
    }
    if (property != AMPROPERTY_PIN_CATEGORY) {
        return PropertyUnknown;
    }
    if (support != nullptr) {
        *support = KSPROPERTY_SUPPORT_GET;
    }
    return S_OK;
}

} // namespace sample_camera
