// How methods hand their results to the host.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <cstring>
#include <string>

namespace rig {

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
