#pragma once

#include <string>
#include <string_view>

namespace kx::tool {

// What a database or its driver said, followed by what to do about it where that is known.
std::string WithAdvice(std::string text);

// Why a file cannot be opened as a plant, as the system says it; empty: it is there and may be read.
std::string FileTrouble(std::string_view file);

}  // namespace kx::tool
