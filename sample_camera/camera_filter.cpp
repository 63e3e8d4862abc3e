#include "sample_camera/camera_filter.h"

#include "platform/hresult.h"
#include "sample_camera/enumerators.h"

#include <string_view>
#include <utility>

namespace sample_camera {

// What the enumerator of pins lists.
class CameraFilter::Pins {
public:
    using Item = IPin*;

    Pins(CameraFilter& filter, IPin& pin) noexcept : filter_(&filter), pin_(pin) {}
    [[nodiscard]] static ULONG Count() noexcept { return 1; }
    [[nodiscard]] HRESULT Get(ULONG /*index*/, IPin** pin) const noexcept {
        pin_.AddRef();
        *pin = &pin_;
        return S_OK;
    }

private:
    ComPtr<IBaseFilter> filter_; // keeps the pin alive
    IPin& pin_;
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
    const ULONG left = --references_;
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
    StreamTarget target = pin_.Target();
    return target.input ? stream_.Start(std::move(target)) : S_FALSE;
}

HRESULT CameraFilter::Stop() noexcept {
    const std::lock_guard transition(transition_);
    stream_.Stop();
    state_ = State_Stopped;
    return S_OK;
}

HRESULT CameraFilter::Pause() noexcept {
    const std::lock_guard transition(transition_);
    if (state_ == State_Stopped) {
        RETURN_IF_FAILED(Activate());
    }
    stream_.Pause();
    state_ = State_Paused;
    return S_OK;
}

HRESULT CameraFilter::Run(REFERENCE_TIME start) noexcept {
    const std::lock_guard transition(transition_);
    if (state_ == State_Stopped) {
        RETURN_IF_FAILED(Activate());
    }
    ComPtr<IReferenceClock> clock;
    {
        const std::lock_guard guard(lock_);
        clock = clock_;
    }
    stream_.Run(std::move(clock), start);
    state_ = State_Running;
    return S_OK;
}

// A live source delivers nothing while it is paused, so that no filter downstream can be ready.
HRESULT CameraFilter::GetState(DWORD /*timeoutMs*/, FILTER_STATE* state) noexcept {
    if (state == nullptr) {
        return E_POINTER;
    }
    *state = state_;
    return *state == State_Paused ? VFW_S_CANT_CUE : S_OK;
}

HRESULT CameraFilter::SetSyncSource(IReferenceClock* clock) noexcept {
    ComPtr<IReferenceClock> other(clock); // the former one is released when no lock is held
    const std::lock_guard guard(lock_);
    std::swap(clock_, other);
    return S_OK;
}

HRESULT CameraFilter::GetSyncSource(IReferenceClock** clock) noexcept {
    if (clock == nullptr) {
        return E_POINTER;
    }
    const std::lock_guard guard(lock_);
    *clock = clock_.Get();
    if (clock_) {
        clock_->AddRef();
    }
    return S_OK;
}

HRESULT CameraFilter::EnumPins(IEnumPins** pins) noexcept {
    return Enumerator<IEnumPins, IID_IEnumPins, Pins>::Make(Pins(*this, pin_), 0, pins);
}

HRESULT CameraFilter::FindPin(LPCWSTR id, IPin** pin) noexcept {
    if (id == nullptr || pin == nullptr) {
        return E_POINTER;
    }
    *pin = nullptr;
    wchar_t* own = nullptr;
    RETURN_IF_FAILED(pin_.QueryId(&own));
    const receiver::CoTaskString owner(own);
    if (std::wstring_view(id) != own) {
        return VFW_E_NOT_FOUND;
    }
    pin_.AddRef();
    *pin = &pin_;
    return S_OK;
}

HRESULT CameraFilter::QueryFilterInfo(FILTER_INFO* info) noexcept {
    if (info == nullptr) {
        return E_POINTER;
    }
    const std::lock_guard guard(lock_);
    *info = {};
    std::copy(name_.begin(), name_.end(), info->achName);
    info->pGraph = graph_;
    if (graph_ != nullptr) {
        graph_->AddRef();
    }
    return S_OK;
}

HRESULT CameraFilter::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) noexcept {
    const std::lock_guard guard(lock_);
    graph_ = graph;
    const std::wstring_view text = name != nullptr ? std::wstring_view(name) : std::wstring_view();
    name_ = {};
    text.copy(name_.data(), name_.size() - 1);
    return S_OK;
}

HRESULT CameraFilter::Reconnect() noexcept {
    ComPtr<IFilterGraph> graph;
    {
        const std::lock_guard guard(lock_);
        graph = ComPtr<IFilterGraph>(graph_);
    }
    return graph ? graph->Reconnect(&pin_) : VFW_E_NOT_IN_GRAPH;
}

} // namespace sample_camera
