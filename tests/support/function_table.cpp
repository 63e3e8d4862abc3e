#include "tests/support/function_table.h"

#include <array>
#include <utility>

namespace receiver {
namespace {

// On x64 the caller removes the arguments, so that a function with fewer arguments can replace every method.
template <std::size_t Slot>
HRESULT STDMETHODCALLTYPE NumberOfSlot(void*) noexcept {
    return static_cast<HRESULT>(Slot);
}

template <std::size_t... Slots>
std::array<void*, sizeof...(Slots)> NumberingTable(std::index_sequence<Slots...>) noexcept {
    return {reinterpret_cast<void*>(&NumberOfSlot<Slots>)...};
}

} // namespace

void* SlotNumberingObject() noexcept {
    static std::array<void*, TableSize> table = NumberingTable(std::make_index_sequence<TableSize>());
    static void* object = table.data();
    return static_cast<void*>(&object);
}

} // namespace receiver
