#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "database/value.h"

namespace kx::tool {

enum class Format { kText, kCsv, kJson };

// Rows of texts under column titles. Columns of numbers alone stand to the right, and all from `right_from`
// on.
class Table {
 public:
  static constexpr std::size_t kNoColumn = static_cast<std::size_t>(-1);

  explicit Table(std::vector<std::string> titles, std::size_t right_from = kNoColumn)
      : titles_(std::move(titles)), right_from_(right_from) {}

  void Add(std::vector<Value> row) { rows_.push_back(std::move(row)); }
  // Comma-separated or a JSON array of objects, both with full precision, or aligned with two decimals.
  void Print(std::ostream& output, Format format) const;
  void Print(std::ostream& output, bool csv) const { Print(output, csv ? Format::kCsv : Format::kText); }
  // One row as a JSON object.
  std::string JsonRow(std::size_t row) const;

 private:
  std::vector<std::string> titles_;
  std::size_t right_from_;
  std::vector<std::vector<Value>> rows_;
};

}  // namespace kx::tool
