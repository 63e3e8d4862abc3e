// What a fuzz target promises about every input: the first promise that does not hold stops the program.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace receiver {

inline void Require(bool held, const char* promise) {
    if (!held) {
        (void)std::fprintf(stderr, "Broken promise: %s\n", promise);
        std::abort();
    }
}

} // namespace receiver
