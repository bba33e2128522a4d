#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process, so that the fuzzer keeps the input.
inline void expect(bool holds, const char* what) {
    if (!holds) {
        (void)std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}
