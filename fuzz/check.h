// What a fuzzer says when an expectation does not hold: the text, then an abort that libFuzzer and
// ctest take for a finding. Not assert, which release builds leave out.
#pragma once

#include <cstdio>
#include <cstdlib>

inline void Check(bool holds, const char* expectation) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", expectation);
        std::abort();
    }
}
