#pragma once

namespace kx::com {

// Counts what needs the library's code: its objects and the locks of its clients.
void AddModuleUse();
void RemoveModuleUse();
bool IsModuleInUse();

}  // namespace kx::com
