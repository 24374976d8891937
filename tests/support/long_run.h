#pragma once

#include <cstdlib>

namespace kx::test {

// Whether scripts/soak runs the test: then it takes every case, however long that lasts.
inline bool IsLongRun() { return std::getenv("KXDATA7_LONG_RUN") != nullptr; }

// From one case to the next: every one in the long run, otherwise one of so many.
inline int Stride(int of) { return IsLongRun() ? 1 : of; }

}  // namespace kx::test
