// Memory between two inaccessible pages: a read or write beyond either end stops the program.
#pragma once

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <cstddef>
#include <cstdint>
#include <new>
#include <span>

namespace receiver {

class GuardedBytes {
public:
    explicit GuardedBytes(std::size_t capacity) {
#ifdef _WIN32
        SYSTEM_INFO system;
        GetSystemInfo(&system);
        page_ = system.dwPageSize;
#else
        page_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
#endif
        size_ = (capacity + page_ - 1) / page_ * page_;
        const std::size_t whole = size_ + 2 * page_;
#ifdef _WIN32
        base_ = static_cast<std::uint8_t*>(VirtualAlloc(nullptr, whole, MEM_RESERVE, PAGE_NOACCESS));
        if (base_ == nullptr || VirtualAlloc(base_ + page_, size_, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
            throw std::bad_alloc();
        }
#else
        void* const memory = mmap(nullptr, whole, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::bad_alloc();
        }
        base_ = static_cast<std::uint8_t*>(memory);
        if (mprotect(base_ + page_, size_, PROT_READ | PROT_WRITE) != 0) {
            throw std::bad_alloc();
        }
#endif
    }
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;
    ~GuardedBytes() {
#ifdef _WIN32
        VirtualFree(base_, 0, MEM_RELEASE);
#else
        munmap(base_, size_ + 2 * page_);
#endif
    }

    // The first and the last `size` bytes, next to an inaccessible page. They are 0 at first.
    [[nodiscard]] std::span<std::uint8_t> First(std::size_t size) const { return All().first(size); }
    [[nodiscard]] std::span<std::uint8_t> Last(std::size_t size) const { return All().last(size); }
    [[nodiscard]] std::span<std::uint8_t> All() const { return {base_ + page_, size_}; }

private:
    std::uint8_t* base_ = nullptr;
    std::size_t page_ = 0;
    std::size_t size_ = 0; // of the accessible part
};

} // namespace receiver
