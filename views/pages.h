#pragma once

#include <string>
#include <string_view>

#include "plant/plant.h"

namespace kx::tool {

struct Page {
  unsigned status = 200;
  std::string type = "text/html; charset=utf-8";
  std::string body;
};

Page PlainPage(unsigned status, std::string_view text);

// A report or listing by the target of its request, such as "/report?range=last" or "/api/v1/downtimes?…":
// 400 with a text for a range that cannot be, 404 for an unknown name.
Page ReportAnswer(Plant& plant, const std::string& plant_name, DateTime now, std::string_view target);
bool IsReportTarget(std::string_view path);

}  // namespace kx::tool
