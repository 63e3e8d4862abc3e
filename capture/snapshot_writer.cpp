#include "capture/snapshot_writer.h"

namespace receiver {

HRESULT SaveSnapshot(const std::uint8_t*, std::uint32_t, std::uint32_t, std::uint32_t, std::wstring&) noexcept {
    return E_NOTIMPL;
}

} // namespace receiver
