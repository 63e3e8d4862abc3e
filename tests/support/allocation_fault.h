// Lets one or two allocations through operator new fail on this thread, as if memory had run out.
#pragma once

#include <functional>
#include <optional>

namespace receiver {

// While it exists, allocation number `index`, counted from 0, throws std::bad_alloc. With a `gap`, so many of the
// following ones succeed and then one more fails. Only one exists at a time.
class AllocationFault {
public:
    explicit AllocationFault(unsigned index, std::optional<unsigned> gap = {}) noexcept;
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;
    ~AllocationFault();

    // Whether all the allocations failed that should.
    [[nodiscard]] bool Happened() const noexcept;

    std::function<void()> onFailure; // called for each before it fails
};

// While it exists, allocations succeed and are not counted: for the code of the test itself.
class AllocationPause {
public:
    AllocationPause() noexcept;
    AllocationPause(const AllocationPause&) = delete;
    AllocationPause& operator=(const AllocationPause&) = delete;
    ~AllocationPause();
};

// Ends all pauses while it exists: for calls of the test into the product.
class AllocationResume {
public:
    AllocationResume() noexcept;
    AllocationResume(const AllocationResume&) = delete;
    AllocationResume& operator=(const AllocationResume&) = delete;
    ~AllocationResume();

private:
    unsigned pausesBefore;
};

// Number of pauses in force on this thread.
[[nodiscard]] unsigned AllocationPauses() noexcept;

// Number of allocations of the whole program that have not been freed.
[[nodiscard]] long LiveAllocations() noexcept;

} // namespace receiver
