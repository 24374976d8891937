#include "plant/named_values.h"

#include <algorithm>

#include "database/text.h"

namespace kx::tool {

NamedValues ParseNamedValues(std::string_view text) {
  NamedValues values;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    const std::size_t equals = line.find('=');
    if (equals != std::string_view::npos)
      values.insert_or_assign(std::string(line.substr(0, equals)), std::string(line.substr(equals + 1)));
  }
  return values;
}

std::string NamedValuesText(const NamedValues& values) {
  std::string text;
  for (const auto& [name, value] : values) Append(text, name, "=", value, "\n");
  return text;
}

}  // namespace kx::tool
