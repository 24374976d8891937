#pragma once

#include <string>
#include <string_view>

namespace kx {

constexpr std::string_view kTablePrefix = "T_SFC_";

// The key column of a table: X_ID for T_SFC_X.
inline std::string KeyColumnOf(std::string_view table) {
  return std::string(table.substr(kTablePrefix.size())) + "_ID";
}

}  // namespace kx
