#include "sample_camera/camera_filter.h"

#include "platform/hresult.h"
#include "sample_camera/enumerators.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace sample_camera {

// What the enumerator of pins lists.
class CameraFilter::Pins {
public:
    using Item = IPin*;

    Pins(CameraFilter& owner, IPin& onlyPin) noexcept : filter(&owner), pin(onlyPin) {}
    [[nodiscard]] static ULONG Count() noexcept { return 1; }
    [[nodiscard]] HRESULT Get(ULONG /*index*/, IPin** item) const noexcept {
        pin.AddRef();
        *item = &pin;
        return S_OK;
    }

private:
    ComPtr<IBaseFilter> filter; // keeps the pin alive
    IPin& pin;
};

HRESULT CameraFilter::QueryInterface(REFIID id, void** object) noexcept {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (id == IID_IUnknown || id == IID_IPersist || id == IID_IMediaFilter || id == IID_IBaseFilter) {
        *object = static_cast<IBaseFilter*>(this);
    } else if (id == IID_IAMFilterMiscFlags) {
        *object = static_cast<IAMFilterMiscFlags*>(this);
    } else {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

ULONG CameraFilter::Release() noexcept {
    const ULONG left = --references;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT CameraFilter::GetClassID(CLSID* id) noexcept {
    if (id == nullptr) {
        return E_POINTER;
    }
    *id = CameraClass;
    return S_OK;
}

// Starts the stream of a connected pin; an unconnected camera goes through the states without one.
HRESULT CameraFilter::Activate() noexcept {
    StreamTarget target = pin.Target();
    return target.input ? stream.Start(std::move(target)) : S_FALSE;
}

HRESULT CameraFilter::Stop() noexcept {
    const std::lock_guard change(transition);
    stream.Stop();
    state = State_Stopped;
    return S_OK;
}

HRESULT CameraFilter::Pause() noexcept {
    const std::lock_guard change(transition);
    if (state == State_Stopped) {
        RETURN_IF_FAILED(Activate());
    }
    stream.Pause();
    state = State_Paused;
    return S_OK;
}

HRESULT CameraFilter::Run(REFERENCE_TIME start) noexcept {
    const std::lock_guard change(transition);
    if (state == State_Stopped) {
        RETURN_IF_FAILED(Activate());
    }
    ComPtr<IReferenceClock> currentClock;
    {
        const std::lock_guard guard(lock);
        currentClock = clock;
    }
    stream.Run(std::move(currentClock), start);
    state = State_Running;
    return S_OK;
}

// A live source delivers nothing while it is paused, so that no filter downstream can be ready.
HRESULT CameraFilter::GetState(DWORD /*timeoutMs*/, FILTER_STATE* current) noexcept {
    if (current == nullptr) {
        return E_POINTER;
    }
    *current = state;
    return *current == State_Paused ? VFW_S_CANT_CUE : S_OK;
}

HRESULT CameraFilter::SetSyncSource(IReferenceClock* newClock) noexcept {
    ComPtr<IReferenceClock> other(newClock); // the former one is released when no lock is held
    const std::lock_guard guard(lock);
    std::swap(clock, other);
    return S_OK;
}

HRESULT CameraFilter::GetSyncSource(IReferenceClock** current) noexcept {
    if (current == nullptr) {
        return E_POINTER;
    }
    const std::lock_guard guard(lock);
    *current = clock.Get();
    if (clock) {
        clock->AddRef();
    }
    return S_OK;
}

HRESULT CameraFilter::EnumPins(IEnumPins** pins) noexcept {
    return Enumerator<IEnumPins, IID_IEnumPins, Pins>::Make(Pins(*this, pin), 0, pins);
}

HRESULT CameraFilter::FindPin(LPCWSTR id, IPin** found) noexcept {
    if (id == nullptr || found == nullptr) {
        return E_POINTER;
    }
    *found = nullptr;
    wchar_t* own = nullptr;
    RETURN_IF_FAILED(pin.QueryId(&own));
    const receiver::CoTaskString owner(own);
    if (std::wstring_view(id) != own) {
        return VFW_E_NOT_FOUND;
    }
    pin.AddRef();
    *found = &pin;
    return S_OK;
}

HRESULT CameraFilter::QueryFilterInfo(FILTER_INFO* info) noexcept {
    if (info == nullptr) {
        return E_POINTER;
    }
    const std::lock_guard guard(lock);
    *info = {};
    std::copy(name.begin(), name.end(), info->achName);
    info->pGraph = graph;
    if (graph != nullptr) {
        graph->AddRef();
    }
    return S_OK;
}

HRESULT CameraFilter::JoinFilterGraph(IFilterGraph* newGraph, LPCWSTR newName) noexcept {
    const std::lock_guard guard(lock);
    graph = newGraph;
    const std::wstring_view text = newName != nullptr ? std::wstring_view(newName) : std::wstring_view();
    name = {};
    text.copy(name.data(), name.size() - 1);
    return S_OK;
}

HRESULT CameraFilter::Reconnect() noexcept {
    ComPtr<IFilterGraph> joined;
    {
        const std::lock_guard guard(lock);
        joined = ComPtr<IFilterGraph>(graph);
    }
    return joined ? joined->Reconnect(&pin) : VFW_E_NOT_IN_GRAPH;
}

} // namespace sample_camera
