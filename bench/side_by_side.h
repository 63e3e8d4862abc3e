// Times pieces of work against a bound, in turns, so that whatever slows the machine slows all of them.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace receiver {

// Work takes the number of its call, by which it chooses among sources.
using Work = std::function<void(std::size_t call)>;

struct Contender {
    std::string name;
    Work run;
    bool isSlow = false; // runs a few times only
};

struct Timing {
    std::string name;
    double ratio = 0; // to the bound around it; the median of all repetitions
    double microseconds = 0; // likewise
};

// Each contender runs in every repetition, in another order each time, between two runs of the bound.
[[nodiscard]] std::vector<Timing> MeasureSideBySide(const std::vector<Contender>& contenders, const Work& bound);

// Keeps the compiler from leaving out work whose result nobody reads.
inline void KeepBytes(const void* bytes) { asm volatile("" : : "r"(bytes) : "memory"); }

} // namespace receiver
