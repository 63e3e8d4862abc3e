// Lets one allocation through operator new fail on this thread, as if memory had run out.
#pragma once

namespace receiver {

// While it exists, allocation number `index`, counted from 0, throws std::bad_alloc. Only one exists at a time.
class AllocationFault {
public:
    explicit AllocationFault(unsigned index) noexcept;
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;
    ~AllocationFault();

    [[nodiscard]] bool Happened() const noexcept;
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
