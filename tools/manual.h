#pragma once

#include <string>

#include "tools/command_line.h"

namespace kx::tool {

// Writes the manual pages of the tool and of its commands, kxdata7.1 and kxdata7-COMMAND.1, into a folder,
// from what the command line knows of itself, as --help does.
int WriteManual(const CLI::App& app, const std::string& folder);

}  // namespace kx::tool
