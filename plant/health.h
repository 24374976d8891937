#pragma once

#include <optional>
#include <string>
#include <vector>

#include "plant/plant.h"

namespace kx::tool {

// A change that is certain to be right.
struct Repair {
  std::string what;  // in the imperative
  std::string sql;
  std::vector<Value> parameters;
};

// What an examination found, and what to do about it.
struct Finding {
  enum class Grade { kOk, kNote, kMissing, kFailed };
  Grade grade;
  std::string text;
  std::optional<Repair> repair = {};
};

// Examines the plant's tables and what is in them, for a component that writes `dialect`. What goes wrong in
// a check is its finding. Changes nothing.
std::vector<Finding> Examine(Plant& plant, std::int32_t dialect);
// Examines the component, its way to the plant, and the statements that it writes there, rolling them back.
std::vector<Finding> ExamineComponent(const PlantOptions& options);

}  // namespace kx::tool
