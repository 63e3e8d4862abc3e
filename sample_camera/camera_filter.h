// The sample camera as a DirectShow source filter: state, clock, graph. Its one pin is camera_pin.h.
#pragma once

#include "sample_camera/camera_pin.h"
#include "sample_camera/camera_stream.h"
#include "sample_camera/direct_show.h"

#include <array>
#include <atomic>
#include <mutex>

namespace sample_camera {

inline constexpr CLSID CameraClass{0xC132191D, 0x7DC1, 0x4EB6, {0x89, 0x14, 0xB9, 0x12, 0xB1, 0x5C, 0x22, 0xB0}};
inline constexpr wchar_t CameraName[] = L"Vistel Sample Camera";

class CameraFilter final : public IBaseFilter, public IAMFilterMiscFlags {
public:
    CameraFilter() noexcept : pin(*this) {}
    CameraFilter(const CameraFilter&) = delete;
    CameraFilter& operator=(const CameraFilter&) = delete;

    // Held while the state or the connection changes, never by the stream's thread. Recursive: a filter that is being
    // connected may call back.
    [[nodiscard]] std::recursive_mutex& Transition() noexcept { return transition; }
    [[nodiscard]] bool IsActive() const noexcept { return state != State_Stopped; }
    // Has the graph connect the pin again, with its new format. The caller does not hold `Transition()`: the graph
    // takes a lock of its own, and holds it while it starts or stops this filter.
    [[nodiscard]] HRESULT Reconnect() noexcept;

    STDMETHODIMP QueryInterface(REFIID id, void** object) noexcept override;
    STDMETHODIMP_(ULONG) AddRef() noexcept override { return ++references; }
    STDMETHODIMP_(ULONG) Release() noexcept override;

    // IPersist
    STDMETHODIMP GetClassID(CLSID* id) noexcept override;

    // IMediaFilter
    STDMETHODIMP Stop() noexcept override;
    STDMETHODIMP Pause() noexcept override;
    STDMETHODIMP Run(REFERENCE_TIME start) noexcept override;
    STDMETHODIMP GetState(DWORD timeoutMs, FILTER_STATE* current) noexcept override;
    STDMETHODIMP SetSyncSource(IReferenceClock* newClock) noexcept override;
    STDMETHODIMP GetSyncSource(IReferenceClock** current) noexcept override;

    // IBaseFilter
    STDMETHODIMP EnumPins(IEnumPins** pins) noexcept override;
    STDMETHODIMP FindPin(LPCWSTR id, IPin** found) noexcept override;
    STDMETHODIMP QueryFilterInfo(FILTER_INFO* info) noexcept override;
    STDMETHODIMP JoinFilterGraph(IFilterGraph* newGraph, LPCWSTR newName) noexcept override;
    STDMETHODIMP QueryVendorInfo(LPWSTR*) noexcept override { return E_NOTIMPL; }

    // IAMFilterMiscFlags
    STDMETHODIMP_(ULONG) GetMiscFlags() noexcept override { return AM_FILTER_MISC_FLAGS_IS_SOURCE; }

private:
    class Pins;
    ~CameraFilter() = default;
    [[nodiscard]] HRESULT Activate() noexcept;

    std::atomic<ULONG> references = 1;
    std::recursive_mutex transition;
    std::atomic<FILTER_STATE> state = State_Stopped;

    std::mutex lock; // guards what follows; not held during calls to others
    ComPtr<IReferenceClock> clock;
    IFilterGraph* graph = nullptr; // not counted: it owns this filter
    std::array<wchar_t, 128> name{};

    CameraPin pin;
    CameraStream stream; // destroyed first: its thread uses the connection
};

} // namespace sample_camera
