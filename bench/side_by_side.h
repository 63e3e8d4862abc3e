// Times contenders and a baseline in turn, so that other load on the machine slows all of them.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace receiver {

// Work takes the number of its call, which selects one of the sources.
using Work = std::function<void(std::size_t call)>;

struct Contender {
    std::string name;
    Work run;
    bool isSlow = false; // runs a few times only
};

struct Timing {
    std::string name;
    double ratio = 0; // to the baseline around it; the median of all repetitions
    double microseconds = 0; // of one call; the median of all repetitions
};

// Each contender runs in every repetition, in another order each time, between two runs of the baseline.
[[nodiscard]] std::vector<Timing> MeasureSideBySide(const std::vector<Contender>& contenders, const Work& baseline);

// Keeps the compiler from removing work whose result is not read.
inline void KeepBytes(const void* bytes) { asm volatile("" : : "r"(bytes) : "memory"); }

} // namespace receiver
