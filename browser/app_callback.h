// The COM handler through which WebView2 calls the application, written once for all handler interfaces.
// A handler only borrows the application object, which outlives the message loop.
#pragma once

#include "app/receiver_app.h"
#include "platform/com_ptr.h"

#include <windows.h>

#include <atomic>
#include <new>

namespace receiver {

template <typename Interface, const IID& InterfaceId, auto Operation, typename Signature = decltype(&Interface::Invoke)>
class AppCallback;

template <typename Interface, const IID& InterfaceId, auto Operation, typename... Arguments>
class AppCallback<Interface, InterfaceId, Operation, HRESULT (STDMETHODCALLTYPE Interface::*)(Arguments...)> final
    : public Interface {
public:
    explicit AppCallback(ReceiverApp& app) noexcept : app_(app) {}
    AppCallback(const AppCallback&) = delete;
    AppCallback& operator=(const AppCallback&) = delete;

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
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() noexcept override {
        const ULONG left = --references_;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE Invoke(Arguments... arguments) noexcept override {
        try {
            return (app_.*Operation)(arguments...);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        } catch (...) {
            return E_FAIL; // Nothing may pass the COM boundary.
        }
    }

private:
    ~AppCallback() = default;

    ReceiverApp& app_;
    std::atomic<ULONG> references_ = 1; // The creator's.
};

// A new handler; empty when there is no memory for it.
template <typename Callback>
[[nodiscard]] ComPtr<Callback> MakeCallback(ReceiverApp& app) noexcept {
    return ComPtr<Callback>::Attach(new (std::nothrow) Callback(app));
}

} // namespace receiver
