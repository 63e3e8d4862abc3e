// A property that must hold for every input: the first violation stops the program.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace receiver {

inline void Require(bool holds, const char* property) {
    if (!holds) {
        (void)std::fprintf(stderr, "Violated: %s\n", property);
        std::abort();
    }
}

} // namespace receiver
