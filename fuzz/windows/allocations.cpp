// Replaces operator new and delete, and with them tests/support/allocation_fault.cpp: no allocation fails here.
#include "fuzz/windows/allocations.h"

#include "fuzz/support/guarded_memory.h"
#include "fuzz/windows/fake_windows.h"
#include "tests/support/allocation_fault.h"

#include <sanitizer/asan_interface.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <vector>

namespace receiver {
namespace {

constexpr std::size_t LargeSize = 1'000'000; // bytes, as the size of a smaller frame
constexpr std::size_t Alignment = 64; // the largest that the program uses

// Ends at an inaccessible page, apart from the bytes that its alignment takes. The address sanitizer reports every
// access to those, and to the whole block while it is free.
struct LargeBlock {
    explicit LargeBlock(std::size_t newSize)
        : size(newSize), memory((newSize + Alignment - 1) / Alignment * Alignment) {
        ASAN_POISON_MEMORY_REGION(memory.Bytes().data(), memory.Bytes().size());
    }

    std::size_t size;
    GuardedMemory memory;
    bool inUse = false;
};

// In the order in which they were last allocated or freed. Never destroyed: objects with static storage may free memory
// late.
std::vector<LargeBlock*>& LargeBlocks() {
    static auto& blocks = *new std::vector<LargeBlock*>;
    return blocks;
}

// All large blocks, and few others, begin between these addresses.
std::uintptr_t lowestAddress = UINTPTR_MAX;
std::uintptr_t highestAddress = 0;

// Those of libFuzzer are not large blocks: the leak sanitizer must find the pointers in them.
bool IsLarge(std::size_t size) { return size >= LargeSize && FakeWindows::Exists(); }

void* TakeLargeBlock(std::size_t size) {
    std::vector<LargeBlock*>& blocks = LargeBlocks();
    const auto found =
        std::ranges::find_if(blocks, [size](const LargeBlock* block) { return !block->inUse && block->size == size; });
    if (found == blocks.end()) {
        blocks.push_back(new LargeBlock(size));
    } else {
        std::rotate(found, found + 1, blocks.end());
    }
    LargeBlock& block = *blocks.back();
    block.inUse = true;
    std::uint8_t* const memory = block.memory.Bytes().data();
    ASAN_UNPOISON_MEMORY_REGION(memory, size);
    lowestAddress = std::min(lowestAddress, reinterpret_cast<std::uintptr_t>(memory));
    highestAddress = std::max(highestAddress, reinterpret_cast<std::uintptr_t>(memory));
    return memory;
}

// False if `memory` is no large block.
bool ReturnLargeBlock(const void* memory) {
    const auto address = reinterpret_cast<std::uintptr_t>(memory);
    if (address < lowestAddress || address > highestAddress) {
        return false;
    }
    std::vector<LargeBlock*>& blocks = LargeBlocks();
    const auto found = std::ranges::find_if(
        blocks, [memory](const LargeBlock* block) { return block->inUse && block->memory.Bytes().data() == memory; });
    if (found == blocks.end()) {
        return false;
    }
    LargeBlock& block = **found;
    block.inUse = false;
    ASAN_POISON_MEMORY_REGION(memory, block.size);
    std::rotate(found, found + 1, blocks.end());
    return true;
}

void Free(void* memory) noexcept {
    if (memory != nullptr && !ReturnLargeBlock(memory)) {
        std::free(memory);
    }
}

} // namespace

std::size_t LargeBlocksInUse() noexcept {
    return static_cast<std::size_t>(std::ranges::count(LargeBlocks(), true, &LargeBlock::inUse));
}

AllocationPause::AllocationPause() noexcept = default;
AllocationPause::~AllocationPause() = default;
AllocationResume::AllocationResume() noexcept : pausesBefore(0) {}
AllocationResume::~AllocationResume() { (void)pausesBefore; }

} // namespace receiver

void* operator new(std::size_t size) {
    if (receiver::IsLarge(size)) {
        return receiver::TakeLargeBlock(size);
    }
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new[](std::size_t size) { return operator new(size); }

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
    const auto unit = static_cast<std::size_t>(alignment);
    if (receiver::IsLarge(size) && unit <= receiver::Alignment) {
        return receiver::TakeLargeBlock(size);
    }
    void* const memory = std::aligned_alloc(unit, (size + unit - 1) / unit * unit);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept { receiver::Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { receiver::Free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { receiver::Free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { receiver::Free(memory); }
void operator delete[](void* memory) noexcept { receiver::Free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { receiver::Free(memory); }
