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
        page = system.dwPageSize;
#else
        page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
#endif
        size = (capacity + page - 1) / page * page;
        const std::size_t whole = size + 2 * page;
#ifdef _WIN32
        base = static_cast<std::uint8_t*>(VirtualAlloc(nullptr, whole, MEM_RESERVE, PAGE_NOACCESS));
        if (base == nullptr || VirtualAlloc(base + page, size, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
            throw std::bad_alloc();
        }
#else
        void* const memory = mmap(nullptr, whole, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::bad_alloc();
        }
        base = static_cast<std::uint8_t*>(memory);
        if (mprotect(base + page, size, PROT_READ | PROT_WRITE) != 0) {
            throw std::bad_alloc();
        }
#endif
    }
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;
    ~GuardedBytes() {
#ifdef _WIN32
        VirtualFree(base, 0, MEM_RELEASE);
#else
        munmap(base, size + 2 * page);
#endif
    }

    // The first and the last `size` bytes, next to an inaccessible page. They are 0 at first.
    [[nodiscard]] std::span<std::uint8_t> First(std::size_t count) const { return All().first(count); }
    [[nodiscard]] std::span<std::uint8_t> Last(std::size_t count) const { return All().last(count); }
    [[nodiscard]] std::span<std::uint8_t> All() const { return {base + page, size}; }

private:
    std::uint8_t* base = nullptr;
    std::size_t page = 0;
    std::size_t size = 0; // of the accessible part
};

} // namespace receiver
