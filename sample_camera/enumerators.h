// DirectShow's enumerators of pins and media types, which differ only in what they list.
#pragma once

#include "platform/com_object.h"
#include "sample_camera/direct_show.h"

#include <algorithm>
#include <new>
#include <utility>

namespace sample_camera {

// `Source` is copied with the enumerator: `using Item`, `ULONG Count()` and `HRESULT Get(ULONG index, Item* item)`.
template <typename Interface, const IID& Id, typename Source>
class Enumerator final : public receiver::ComObject<Interface, Id> {
public:
    using Item = typename Source::Item;

    [[nodiscard]] static HRESULT Make(Source listed, ULONG first, Interface** enumerator) noexcept {
        if (enumerator == nullptr) {
            return E_POINTER;
        }
        *enumerator = new (std::nothrow) Enumerator(std::move(listed), first);
        return *enumerator != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    STDMETHODIMP Next(ULONG count, Item* items, ULONG* fetched) noexcept override {
        if (items == nullptr || (fetched == nullptr && count != 1)) {
            return E_POINTER;
        }
        ULONG got = 0;
        HRESULT result = S_OK;
        while (got < count && next < source.Count() && SUCCEEDED(result)) {
            result = source.Get(next, &items[got]);
            if (SUCCEEDED(result)) {
                ++got;
                ++next;
            }
        }
        if (fetched != nullptr) {
            *fetched = got;
        }
        return FAILED(result) && got == 0 ? result : got == count ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(ULONG count) noexcept override {
        const ULONG left = source.Count() - next;
        next += std::min(count, left);
        return count <= left ? S_OK : S_FALSE;
    }
    STDMETHODIMP Reset() noexcept override {
        next = 0;
        return S_OK;
    }
    STDMETHODIMP Clone(Interface** copy) noexcept override { return Make(source, next, copy); }

private:
    Enumerator(Source listed, ULONG first) noexcept : source(std::move(listed)), next(first) {}

    Source source;
    ULONG next;
};

} // namespace sample_camera
