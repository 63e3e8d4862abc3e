// Running out of memory on purpose: lets one allocation through operator new fail on this thread.
#pragma once

namespace receiver {

// While it lives, allocation number `index`, counted from 0, throws std::bad_alloc. One at a time.
class AllocationFault {
public:
    explicit AllocationFault(unsigned index) noexcept;
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;
    ~AllocationFault();

    [[nodiscard]] bool Happened() const noexcept;
};

// Allocations made while it lives succeed and are not counted: those of the test's own parts.
class AllocationPause {
public:
    AllocationPause() noexcept;
    AllocationPause(const AllocationPause&) = delete;
    AllocationPause& operator=(const AllocationPause&) = delete;
    ~AllocationPause();
};

// Lifts all pauses: the test's own parts call the product.
class AllocationResume {
public:
    AllocationResume() noexcept;
    AllocationResume(const AllocationResume&) = delete;
    AllocationResume& operator=(const AllocationResume&) = delete;
    ~AllocationResume();

private:
    unsigned pauses_;
};

// How many pauses hold on this thread.
[[nodiscard]] unsigned AllocationPauses() noexcept;

// Allocations of the whole program that have not been freed.
[[nodiscard]] long LiveAllocations() noexcept;

} // namespace receiver
