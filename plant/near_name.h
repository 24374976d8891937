#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kx::tool {

// "; did you mean \"status\"?" for the name that is nearest to `given`, empty when none is near.
std::string DidYouMean(std::string_view given, const std::vector<std::string>& names);

}  // namespace kx::tool
