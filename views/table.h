#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "database/value.h"

namespace kx::tool {

// Rows of texts under column titles. Columns of numbers alone stand to the right.
class Table {
 public:
  explicit Table(std::vector<std::string> titles) : titles_(std::move(titles)) {}

  void Add(std::vector<Value> row) { rows_.push_back(std::move(row)); }
  // Comma-separated with full precision, or aligned with two decimals.
  void Print(std::ostream& output, bool csv) const;

 private:
  std::vector<std::string> titles_;
  std::vector<std::vector<Value>> rows_;
};

}  // namespace kx::tool
