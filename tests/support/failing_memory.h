#pragma once

// Memory that runs out at a chosen allocation. A program that links failing_memory.cpp with
// `-Wl,--wrap=malloc` has all of its own allocations, operator new's and SQLite's pass through it.

namespace kx::test {

// Makes the n-th allocation of this thread from now on, counted from 1, fail once, until it goes out of
// scope.
class FailingMemory {
 public:
  explicit FailingMemory(long n);
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
  ~FailingMemory();

  bool failed() const;
};

}  // namespace kx::test
