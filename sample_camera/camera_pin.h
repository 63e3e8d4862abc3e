// The sample camera's one output pin: formats, connection, category. Part of the filter, whose reference count it
// shares.
#pragma once

#include "sample_camera/camera_stream.h"
#include "sample_camera/direct_show.h"
#include "sample_camera/media_type.h"

#include <mutex>

namespace sample_camera {

class CameraFilter;

class CameraPin final : public IPin, public IAMStreamConfig, public IKsPropertySet, public IQualityControl {
public:
    explicit CameraPin(CameraFilter& owner) noexcept : filter(owner) {}
    CameraPin(const CameraPin&) = delete;
    CameraPin& operator=(const CameraPin&) = delete;
    ~CameraPin() = default;

    // What a stream needs; empty input while the pin is not connected.
    [[nodiscard]] StreamTarget Target() const noexcept;

    STDMETHODIMP QueryInterface(REFIID id, void** object) noexcept override;
    STDMETHODIMP_(ULONG) AddRef() noexcept override;
    STDMETHODIMP_(ULONG) Release() noexcept override;

    // IPin
    STDMETHODIMP Connect(IPin* receivePin, const AM_MEDIA_TYPE* wanted) noexcept override;
    STDMETHODIMP ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) noexcept override { return E_UNEXPECTED; }
    STDMETHODIMP Disconnect() noexcept override;
    STDMETHODIMP ConnectedTo(IPin** peer) noexcept override;
    STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* type) noexcept override;
    STDMETHODIMP QueryPinInfo(PIN_INFO* info) noexcept override;
    STDMETHODIMP QueryDirection(PIN_DIRECTION* direction) noexcept override;
    STDMETHODIMP QueryId(LPWSTR* id) noexcept override;
    STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE* type) noexcept override;
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** types) noexcept override;
    STDMETHODIMP QueryInternalConnections(IPin**, ULONG*) noexcept override { return E_NOTIMPL; }
    STDMETHODIMP EndOfStream() noexcept override { return E_UNEXPECTED; }
    STDMETHODIMP BeginFlush() noexcept override { return E_UNEXPECTED; }
    STDMETHODIMP EndFlush() noexcept override { return E_UNEXPECTED; }
    STDMETHODIMP NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) noexcept override { return E_UNEXPECTED; }

    // IAMStreamConfig
    STDMETHODIMP SetFormat(AM_MEDIA_TYPE* type) noexcept override;
    STDMETHODIMP GetFormat(AM_MEDIA_TYPE** type) noexcept override;
    STDMETHODIMP GetNumberOfCapabilities(int* count, int* size) noexcept override;
    STDMETHODIMP GetStreamCaps(int index, AM_MEDIA_TYPE** type, BYTE* capabilities) noexcept override;

    // IKsPropertySet: the pin's category
    STDMETHODIMP Set(REFGUID, DWORD, LPVOID, DWORD, LPVOID, DWORD) noexcept override { return E_NOTIMPL; }
    STDMETHODIMP Get(REFGUID set, DWORD property, LPVOID instance, DWORD instanceSize, LPVOID data, DWORD dataSize,
                     DWORD* returned) noexcept override;
    STDMETHODIMP QuerySupported(REFGUID set, DWORD property, DWORD* support) noexcept override;

    // IQualityControl: renderers report that they are late; a camera cannot do anything about that.
    STDMETHODIMP Notify(IBaseFilter*, Quality) noexcept override { return S_OK; }
    STDMETHODIMP SetSink(IQualityControl*) noexcept override { return S_OK; }

private:
    // The formats to offer, best first: the chosen one, or all.
    struct Offer;
    class MediaTypes;
    [[nodiscard]] Offer Offered() const noexcept;
    [[nodiscard]] HRESULT TryConnect(IPin& receivePin, const StreamFormat& format) noexcept;
    [[nodiscard]] static HRESULT MakeAllocator(IMemInputPin& input, const StreamFormat& format,
                                               ComPtr<IMemAllocator>& allocator) noexcept;
    // Null while not connected.
    [[nodiscard]] ComPtr<IPin> Peer() const noexcept;

    CameraFilter& filter;

    mutable std::mutex lock; // guards what follows; not held during calls to others
    StreamFormat format{VideoFormats[0], ShortestInterval100ns}; // asked for or connected last: that of GetFormat
    StreamFormat connectedFormat{}; // what the peer has accepted; unchanged by SetFormat
    bool chosen = false; // by SetFormat: no other format is offered
    ComPtr<IPin> peer;
    ComPtr<IMemInputPin> input;
    ComPtr<IMemAllocator> allocator;
};

} // namespace sample_camera
