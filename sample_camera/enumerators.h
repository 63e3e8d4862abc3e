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

    [[nodiscard]] static HRESULT Make(Source source, ULONG next, Interface** enumerator) noexcept {
        if (enumerator == nullptr) {
            return E_POINTER;
        }
        *enumerator = new (std::nothrow) Enumerator(std::move(source), next);
        return *enumerator != nullptr ? S_OK : E_OUTOFMEMORY;
    }

    STDMETHODIMP Next(ULONG count, Item* items, ULONG* fetched) noexcept override {
        if (items == nullptr || (fetched == nullptr && count != 1)) {
            return E_POINTER;
        }
        ULONG got = 0;
        HRESULT result = S_OK;
        while (got < count && next_ < source_.Count() && SUCCEEDED(result)) {
            result = source_.Get(next_, &items[got]);
            if (SUCCEEDED(result)) {
                ++got;
                ++next_;
            }
        }
        if (fetched != nullptr) {
            *fetched = got;
        }
        return FAILED(result) && got == 0 ? result : got == count ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(ULONG count) noexcept override {
        const ULONG left = source_.Count() - next_;
        next_ += std::min(count, left);
        return count <= left ? S_OK : S_FALSE;
    }
    STDMETHODIMP Reset() noexcept override {
        next_ = 0;
        return S_OK;
    }
    STDMETHODIMP Clone(Interface** copy) noexcept override { return Make(source_, next_, copy); }

private:
    Enumerator(Source source, ULONG next) noexcept : source_(std::move(source)), next_(next) {}

    Source source_;
    ULONG next_;
};

} // namespace sample_camera
