#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "database/connection.h"

namespace kx::test {

// The tables of a plant on a database whose SQL the tests do not know. What a test asks or changes runs on a
// copy in SQLite's memory; to the database go only SELECT of whole tables, DELETE and INSERT, which every
// system takes. The database's key counters run on for ever: the copy shows the keys that they give as if the
// counters began, and were put back, with the tables.
class TableMirror {
 public:
  // `identity_insert`: keys need SQL Server's leave.
  TableMirror(Connection& link, std::string_view sqlite_schema, bool identity_insert);

  const std::vector<std::string>& tables() const { return tables_; }
  // Makes all tables as the schema file leaves them. Raises an exception, with nothing changed, when the
  // plant's machines are not those of a test.
  void Empty();
  // Runs a statement of SQLite. The tables that it names are fetched before and written back when it changed
  // them.
  Rows Run(std::string_view sql);

  void Save();
  void Restore();

 private:
  // Of a table that the component writes: keys above `given` were given by the database since the tables were
  // last put back, and the first of them is shown as the one behind `shown`.
  struct Counter {
    std::int64_t given = 0;
    std::int64_t shown = 0;
  };
  using Tables = std::map<std::string, Rows>;

  static Rows Read(Connection& from, const std::string& table);
  // Makes the rows of a table those given, keys included.
  void Write(Connection& to, const std::string& table, const Rows& rows);
  // The same rows with their keys as the copy shows them, or as the database has them.
  Rows Shown(Rows rows) const;
  Rows Given(Rows rows) const;
  // The next key of a table's counter, taken and given up.
  std::int64_t TakeKey(std::string_view table);

  Connection& link_;
  Connection copy_{OpenEngine};
  std::vector<std::string> tables_;
  Tables saved_;
  std::map<std::string_view, Counter> counters_;             // by the column of the table's own key
  std::map<std::string_view, std::int64_t> saved_counters_;  // as shown
  bool identity_insert_;
};

}  // namespace kx::test
