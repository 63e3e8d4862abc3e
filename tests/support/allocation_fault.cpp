// Replaces operator new of the whole test program, including the form with an alignment. The array forms call these.
#include "tests/support/allocation_fault.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#ifdef _WIN32
#include <malloc.h>
#endif
#include <new>
#include <utility>

namespace receiver {
namespace {

thread_local AllocationFault* currentFault = nullptr;
thread_local unsigned allocationsLeft = 0; // until the one that fails
thread_local std::optional<unsigned> gapAfter; // after the one that fails
thread_local bool happened = false;
thread_local unsigned pauses = 0;
std::atomic<long> liveAllocations = 0;

bool TakeFault() noexcept {
    if (currentFault == nullptr || happened || pauses > 0 || allocationsLeft-- > 0) {
        return false;
    }
    if (currentFault->onFailure) {
        const AllocationPause pause;
        currentFault->onFailure();
    }
    happened = !gapAfter;
    allocationsLeft = std::exchange(gapAfter, {}).value_or(0);
    return true;
}

} // namespace

AllocationFault::AllocationFault(unsigned index, std::optional<unsigned> gap) noexcept {
    currentFault = this;
    allocationsLeft = index;
    gapAfter = gap;
    happened = false;
}

AllocationFault::~AllocationFault() { currentFault = nullptr; }

bool AllocationFault::Happened() const noexcept { return happened; }

AllocationPause::AllocationPause() noexcept { ++pauses; }

AllocationPause::~AllocationPause() { --pauses; }

AllocationResume::AllocationResume() noexcept : pausesBefore(std::exchange(pauses, 0)) {}

AllocationResume::~AllocationResume() { pauses = pausesBefore; }

unsigned AllocationPauses() noexcept { return pauses; }

long LiveAllocations() noexcept { return liveAllocations; }

} // namespace receiver

void* operator new(std::size_t size) {
    void* const memory = receiver::TakeFault() ? nullptr : std::malloc(size > 0 ? size : 1);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++receiver::liveAllocations;
    return memory;
}

// Without this form the address sanitizer would use its own, whose memory must not be freed by the operator delete
// below.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto bytes = static_cast<std::size_t>(alignment);
    void* memory = nullptr;
    if (!receiver::TakeFault()) {
#ifdef _WIN32
        memory = _aligned_malloc(size > 0 ? size : 1, bytes);
#else
        memory = std::aligned_alloc(bytes, (size + bytes - 1) / bytes * bytes);
#endif
    }
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++receiver::liveAllocations;
    return memory;
}

void operator delete(void* memory, std::align_val_t) noexcept {
    receiver::liveAllocations -= memory != nullptr ? 1 : 0;
#ifdef _WIN32
    _aligned_free(memory);
#else
    std::free(memory);
#endif
}

void operator delete(void* memory, std::size_t, std::align_val_t alignment) noexcept {
    operator delete(memory, alignment);
}

void operator delete(void* memory) noexcept {
    receiver::liveAllocations -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }
