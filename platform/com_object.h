// What every COM object of one interface shares: reference counting and QueryInterface.
#pragma once

#include <unknwn.h>

#include <atomic>

namespace receiver {

// Answers IUnknown and the listed identifiers, which must be those of `Interface` and its ancestors.
template <typename Interface, const IID&... Identifiers>
class ComObject : public Interface {
public:
    ComObject() = default;
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override {
        if (object == nullptr) {
            return E_POINTER;
        }
        const bool known = id == IID_IUnknown || (... || (id == Identifiers));
        *object = known ? static_cast<Interface*>(this) : nullptr;
        if (!known) {
            return E_NOINTERFACE;
        }
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

protected:
    virtual ~ComObject() = default;

private:
    std::atomic<ULONG> references = 1; // the creator's
};

} // namespace receiver
