// Memory of an exact size: reading or writing the first byte after it stops the program.
#pragma once

#include "tests/support/guarded_bytes.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace receiver {

class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t size) : pages_(size), size_(size) {}

    // Zero at first.
    [[nodiscard]] std::span<std::uint8_t> Bytes() const { return pages_.Last(size_); }

private:
    GuardedBytes pages_;
    std::size_t size_;
};

} // namespace receiver
