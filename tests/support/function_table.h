// COM objects seen from below: a pointer to a table of functions, three of IUnknown in front.
#pragma once

#include <windows.h>

#include <cstddef>

namespace receiver {

// One more than the longest interface has.
inline constexpr std::size_t TableSize = 118;

// An object each of whose methods returns the number of its own slot.
[[nodiscard]] void* SlotNumberingObject() noexcept;

// The slot through which a method is called, as the compiler sees it.
template <typename Interface, typename... Arguments>
[[nodiscard]] std::size_t SlotOf(HRESULT (STDMETHODCALLTYPE Interface::*method)(Arguments...)) {
    return static_cast<std::size_t>((static_cast<Interface*>(SlotNumberingObject())->*method)(Arguments{}...));
}

} // namespace receiver
