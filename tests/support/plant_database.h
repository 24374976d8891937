#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database/connection.h"
#include "tests/support/postgres_server.h"
#include "tests/support/table_mirror.h"
#include "tests/support/temporary_folder.h"

namespace kx::test {

// kGiven: any database that has the plant's tables, by its connection string.
enum class DatabaseKind { kSqlite, kPostgres, kGiven };

// What this run of the test program is about, as KXDATA7_TEST_DATABASE in the environment says: "postgresql",
// a connection string, or SQLite.
DatabaseKind TestedDatabase();
// The database types that it is tried with: all, and on a given one that of KXDATA7_TEST_DIALECT.
std::vector<int> TestedTypes();

// The server of this test program, started when it is asked for first, which then says whether commits wait
// for the disk.
PostgresServer& TestServer(bool durable = false);

// A database with the plant's tables, new and empty, and the test's own link to it. Its state can be put
// aside and brought back while others are connected.
class PlantDatabase {
 public:
  explicit PlantDatabase(DatabaseKind kind);
  PlantDatabase(const PlantDatabase&) = delete;
  PlantDatabase& operator=(const PlantDatabase&) = delete;
  ~PlantDatabase();

  DatabaseKind kind() const { return kind_; }
  // For the component: on a server with an account that has the rights it needs, and no other.
  std::string connection_string() const;
  // Opens the test's own link, anew when it is open.
  void OpenLink();
  std::string file() const { return (folder_.path() / "plant.db").string(); }  // of SQLite
  const std::string& server_database() const { return server_database_; }      // of PostgreSQL
  std::vector<std::string> Tables();
  DateTime Now();  // the database's clock
  // The server ends every link to the plant but the test's own, and what is done over it.
  void EndOtherLinks();

  // Runs one statement of the tests' own SQL, which is SQLite's, or for a lock PostgreSQL's.
  Rows Run(std::string_view sql);
  void RunScript(std::string_view statements);
  // Puts rows and key counters of all tables aside, and back as they were then.
  void Save();
  void Restore();

  Connection link{OpenEngine};

 private:
  void RunTogether(const std::vector<std::string>& statements);
  void CopyTables(std::string_view from, std::string_view to, std::vector<std::string> also);

  DatabaseKind kind_;
  TemporaryFolder folder_;
  std::string server_database_;
  std::vector<std::string> saved_tables_;
  std::optional<TableMirror> mirror_;  // of a given database
};

}  // namespace kx::test
