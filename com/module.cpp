#include "com/module.h"

#include <atomic>

namespace kx::com {
namespace {

std::atomic<long> uses = 0;

}  // namespace

void AddModuleUse() { ++uses; }
void RemoveModuleUse() { --uses; }
bool IsModuleInUse() { return uses > 0; }

}  // namespace kx::com
