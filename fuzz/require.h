#pragma once

// What the targets promise of their cores: a broken promise stops the fuzzer with the input that broke it.

#include <cstdlib>

inline void Require(bool condition) {
    if (!condition) std::abort();
}
