// A COM object that implements an interface of one method, `Invoke`, by calling a member function of another object.
// WebView2's completion and event handlers are such interfaces.
#pragma once

#include "platform/com_ptr.h"

#include <unknwn.h>

#include <atomic>
#include <new>

namespace receiver {

// Forwards `Invoke` to `Operation`, a member function of `Target` that takes the same arguments. The target is borrowed
// and must outlive the callback.
template <typename Target, typename Interface, const IID& InterfaceId, auto Operation,
          typename Signature = decltype(&Interface::Invoke)>
class ComCallback;

template <typename Target, typename Interface, const IID& InterfaceId, auto Operation, typename... Arguments>
class ComCallback<Target, Interface, InterfaceId, Operation, HRESULT (STDMETHODCALLTYPE Interface::*)(Arguments...)>
    final : public Interface {
public:
    explicit ComCallback(Target& invokedTarget) noexcept : target(invokedTarget) {}
    ComCallback(const ComCallback&) = delete;
    ComCallback& operator=(const ComCallback&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (id != IID_IUnknown && id != InterfaceId) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = static_cast<Interface*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() noexcept override {
        const ULONG left = --references;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE Invoke(Arguments... arguments) noexcept override {
        try {
            return (target.*Operation)(arguments...);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        } catch (...) {
            return E_FAIL; // No exception may cross the COM boundary.
        }
    }

private:
    ~ComCallback() = default;

    Target& target;
    std::atomic<ULONG> references = 1; // the creator's
};

// A new callback; empty when there is no memory for it.
template <typename Callback, typename Target>
[[nodiscard]] ComPtr<Callback> MakeCallback(Target& target) noexcept {
    return ComPtr<Callback>::Attach(new (std::nothrow) Callback(target));
}

} // namespace receiver
