// Memory that ends exactly at a page that cannot be touched: the first byte read or written behind it stops the
// program. The page in front of it cannot be touched either.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <span>

namespace receiver {

class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t size) : size_(size) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t usable = (size + page - 1) / page * page;
        whole_ = usable + 2 * page;
        void* const memory = mmap(nullptr, whole_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::bad_alloc();
        }
        base_ = static_cast<std::uint8_t*>(memory);
        if (mprotect(base_ + page, usable, PROT_READ | PROT_WRITE) != 0) {
            munmap(base_, whole_);
            throw std::bad_alloc();
        }
        begin_ = base_ + page + usable - size;
    }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;
    ~GuardedMemory() { munmap(base_, whole_); }

    // Zero at first.
    [[nodiscard]] std::span<std::uint8_t> Bytes() const noexcept { return {begin_, size_}; }

private:
    std::uint8_t* base_ = nullptr;
    std::uint8_t* begin_ = nullptr;
    std::size_t whole_ = 0;
    std::size_t size_;
};

} // namespace receiver
