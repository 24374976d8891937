#pragma once

#include <string_view>

namespace kx::tool {

// The text of views/assets/NAME as it was when the tool was built; empty for a name that has no file.
std::string_view Asset(std::string_view name);

}  // namespace kx::tool
