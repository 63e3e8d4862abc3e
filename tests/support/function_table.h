// The binary form of COM objects: a pointer to a table of functions that begins with the three of IUnknown.
#pragma once

#include <windows.h>

#include <cstddef>

namespace receiver {

// One more than the number of methods of the longest interface.
inline constexpr std::size_t TableSize = 118;

// An object whose methods return the numbers of their slots.
[[nodiscard]] void* SlotNumberingObject() noexcept;

// The slot through which the compiler calls a method.
template <typename Interface, typename... Arguments>
[[nodiscard]] std::size_t SlotOf(HRESULT (STDMETHODCALLTYPE Interface::*method)(Arguments...)) {
    return static_cast<std::size_t>((static_cast<Interface*>(SlotNumberingObject())->*method)(Arguments{}...));
}

} // namespace receiver
