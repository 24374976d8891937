#include "tests/support/failing_memory.h"

#include <sqlite3.h>

#include <cstdlib>
#include <new>

namespace kx::test {
namespace {

thread_local long allocations_left = 0;  // 0: none fails

bool Fails() { return allocations_left > 0 && --allocations_left == 0; }

sqlite3_mem_methods sqlite_memory;

// Before anything opens a database.
[[maybe_unused]] const bool installed = [] {
  sqlite3_config(SQLITE_CONFIG_GETMALLOC, &sqlite_memory);
  sqlite3_mem_methods failing = sqlite_memory;
  failing.xMalloc = [](int size) { return Fails() ? nullptr : sqlite_memory.xMalloc(size); };
  failing.xRealloc = [](void* block, int size) {
    return Fails() ? nullptr : sqlite_memory.xRealloc(block, size);
  };
  return sqlite3_config(SQLITE_CONFIG_MALLOC, &failing) == SQLITE_OK;
}();

}  // namespace

FailingMemory::FailingMemory(long n) { allocations_left = n; }
FailingMemory::~FailingMemory() { allocations_left = 0; }
bool FailingMemory::failed() const { return allocations_left == 0; }

}  // namespace kx::test

extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) { return kx::test::Fails() ? nullptr : __real_malloc(size); }
}

void* operator new(std::size_t size) {
  void* const block = std::malloc(size);  // through the wrapper
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
