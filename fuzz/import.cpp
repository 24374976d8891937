// Recorded input: any file, read as comma-separated lines and as an adapter's lines.

#include <algorithm>
#include <sstream>

#include "fuzz/demo_plant.h"
#include "inputs/recorded_input.h"
#include "plant/plant.h"

namespace {

using namespace kx::tool;
using kx::fuzz::Require;

void Check(const Recording& recording, std::size_t lines) {
  for (const RecordedEvent& event : recording.events) {
    Require(event.line >= 1 && event.line <= lines, "an event has its line");
    try {
      RequireUsableParam(event.event.type_code, event.param);
    } catch (const ToolError&) {
      continue;  // refused when it is queued
    }
  }
  for (const BadLine& line : recording.bad_lines) {
    Require(line.line >= 1 && line.line <= lines && !line.reason.empty(), "a bad line has its reason");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n')) + 1;
  for (const bool adapter_lines : {false, true}) {
    std::istringstream input(text);
    try {
      Check(adapter_lines ? ReadShdr(input) : ReadCsv(input), lines);
    } catch (const ToolError& error) {
      Require(error.what()[0] != '\0', "a refusal has a reason");
    }
  }
  return 0;
}
