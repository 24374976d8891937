#include "tools/doctor.h"

#include <algorithm>
#include <iostream>

#include "plant/health.h"

namespace kx::tool {
namespace {

std::string OneLine(std::string text) {
  std::ranges::replace_if(
      text, [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return text;
}

void Print(const Finding& finding) {
  constexpr const char* kWords[] = {"ok       ", "note     ", "missing  ", "failed   "};
  std::cout << kWords[static_cast<int>(finding.grade)] << OneLine(finding.text) << '\n';
}

bool PrintAll(const std::vector<Finding>& findings) {
  std::ranges::for_each(findings, Print);
  return std::ranges::all_of(findings, [](const Finding& finding) {
    return finding.grade == Finding::Grade::kOk || finding.grade == Finding::Grade::kNote;
  });
}

// Shows each finding whose repair is certain, and what is done about it.
void RepairAll(Plant& plant, std::int32_t dialect) {
  plant.db.Begin();
  for (const Finding& finding : Examine(plant, dialect)) {
    if (!finding.repair) continue;
    Print(finding);
    std::cout << "repair   " << finding.repair->what << std::endl;
    plant.db.ExecuteDirect(finding.repair->sql, finding.repair->parameters);
  }
  plant.db.Commit();
}

}  // namespace

int Doctor(const PlantOptions& options, bool repair) {
  std::optional<Plant> plant;
  try {
    plant.emplace(options);
  } catch (const std::exception& error) {
    Print({Finding::Grade::kFailed, std::string("connection: ") + error.what()});
    return 1;
  }
  if (repair) RepairAll(*plant, options.dialect);
  Print({Finding::Grade::kOk, "connection"});
  const bool sound = PrintAll(Examine(*plant, options.dialect));
  return PrintAll(ExamineComponent(options)) && sound ? 0 : 1;
}

}  // namespace kx::tool
