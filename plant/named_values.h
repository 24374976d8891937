#pragma once

#include <map>
#include <string>
#include <string_view>

namespace kx::tool {

// Lines name=value, as the plant keeps a source's mapping and its state.
using NamedValues = std::map<std::string, std::string>;
NamedValues ParseNamedValues(std::string_view text);
std::string NamedValuesText(const NamedValues& values);

}  // namespace kx::tool
