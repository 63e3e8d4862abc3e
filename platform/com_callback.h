// A COM object that implements an interface of one method, `Invoke`, by calling a member function of another object.
// WebView2's completion and event handlers are such interfaces.
#pragma once

#include "platform/com_object.h"
#include "platform/com_ptr.h"

#include <new>

namespace receiver {

// Forwards `Invoke` to `Operation`, a member function of `Target` that takes the same arguments. The target is borrowed
// and must outlive the callback.
template <typename Target, typename Interface, const IID& InterfaceId, auto Operation,
          typename Signature = decltype(&Interface::Invoke)>
class ComCallback;

template <typename Target, typename Interface, const IID& InterfaceId, auto Operation, typename... Arguments>
class ComCallback<Target, Interface, InterfaceId, Operation, HRESULT (STDMETHODCALLTYPE Interface::*)(Arguments...)>
    final : public ComObject<Interface, InterfaceId> {
public:
    explicit ComCallback(Target& invokedTarget) noexcept : target(invokedTarget) {}

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
    Target& target;
};

// A new callback; empty when there is no memory for it.
template <typename Callback, typename Target>
[[nodiscard]] ComPtr<Callback> MakeCallback(Target& target) noexcept {
    return ComPtr<Callback>::Attach(new (std::nothrow) Callback(target));
}

} // namespace receiver
