// Large blocks of the program's memory are used again by the next input: the system would clear their pages each time.
#pragma once

#include <cstddef>

namespace receiver {

// The number of large blocks that are allocated.
[[nodiscard]] std::size_t LargeBlocksInUse() noexcept;

} // namespace receiver
