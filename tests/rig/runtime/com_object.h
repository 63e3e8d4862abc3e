// What every object of the runtime shares: reference counting, QueryInterface and strings handed to the host.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <atomic>
#include <cstring>
#include <string>

namespace rig {

// Answers IUnknown and the listed identifiers, which must be `Interface` and its ancestors. The count starts at one.
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
        const bool known = IsEqualIID(id, IID_IUnknown) || (IsEqualIID(id, Identifiers) || ...);
        *object = known ? static_cast<Interface*>(this) : nullptr;
        if (known) {
            AddRef();
        }
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() noexcept override {
        const ULONG left = --references_;
        if (left == 0) {
            delete this;
        }
        return left;
    }

protected:
    virtual ~ComObject() = default;

private:
    std::atomic<ULONG> references_{1};
};

// Gives the caller its own copy, to be freed with CoTaskMemFree.
inline HRESULT CopyText(const std::wstring& text, LPWSTR* copy) {
    if (copy == nullptr) {
        return E_POINTER;
    }
    const std::size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    *copy = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    if (*copy == nullptr) {
        return E_OUTOFMEMORY;
    }
    std::memcpy(*copy, text.c_str(), bytes);
    return S_OK;
}

// Stores a plain result.
template <typename T>
HRESULT StoreResult(const T& value, T* result) {
    if (result == nullptr) {
        return E_POINTER;
    }
    *result = value;
    return S_OK;
}

} // namespace rig
