#pragma once

#include <string>
#include <vector>

#include "tools/command_line.h"

namespace kx::tool {

// What a shell offers for the last of `words`, which may be empty, behind those before it: a line a
// candidate, with a tab and what it is. An empty line says that the names of files belong to them.
int Complete(const CommandLine& line, const std::vector<std::string>& words);

}  // namespace kx::tool
