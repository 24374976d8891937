#include "plant/service_line.h"

#include <algorithm>
#include <string_view>

#include "plant/advice.h"
#include "plant/plant.h"

namespace kx::tool {

std::string TimeOfDay(std::time_t moment) {
  return PlantTime(moment).ToText().substr(std::string_view("YYYY-MM-DD ").size());
}

std::string ServiceLine(const std::string& text) {
  std::string line = WithAdvice(text);
  std::ranges::replace_if(
      line, [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return TimeOfDay(std::time(nullptr)) + ' ' + line;
}

}  // namespace kx::tool
