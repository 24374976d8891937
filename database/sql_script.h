#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kx {

// The statements of a schema file, each ending with a semicolon at the end of a line.
std::vector<std::string> SplitStatements(std::string_view sql);

}  // namespace kx
