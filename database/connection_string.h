#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kx {

// A connection string `Keyword=value;…`. Keywords are compared without case; a value may stand in single or
// double quotes or braces, with the closing one doubled inside.
class ConnectionString {
 public:
  // Raises a DatabaseError that names what is malformed, never a value.
  static ConnectionString Parse(std::string_view text);

  struct Entry {
    std::string keyword;  // in lower case
    std::string value;    // without its quotes
    std::string source;   // as it stood
  };

  // The value of `keyword` (lower case), null when it is not there; the last one counts.
  const std::string* Find(std::string_view keyword) const;
  const std::vector<Entry>& entries() const { return entries_; }
  // The string as it stood, without the entries of `keyword`.
  std::string Without(std::string_view keyword) const;

 private:
  std::vector<Entry> entries_;
};

}  // namespace kx
