// Memory of an exact size: reading or writing the first byte after it stops the program.
#pragma once

#include "tests/support/guarded_bytes.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace receiver {

class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t newSize) : pages(newSize), size(newSize) {}

    // Zero at first.
    [[nodiscard]] std::span<std::uint8_t> Bytes() const { return pages.Last(size); }

private:
    GuardedBytes pages;
    std::size_t size;
};

} // namespace receiver
