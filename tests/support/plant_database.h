#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "database/connection.h"
#include "plant/temporary_folder.h"
#include "tests/support/postgres_server.h"

namespace kx::test {

enum class DatabaseKind { kSqlite, kPostgres };

// What this run of the test program is about: PostgreSQL when the environment says
// KXDATA7_TEST_DATABASE=postgresql, SQLite otherwise.
DatabaseKind TestedDatabase();

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
  std::string Now();  // the database's clock
  // The server ends every link to the plant but the test's own, and what is done over it.
  void EndOtherLinks();

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
};

}  // namespace kx::test
