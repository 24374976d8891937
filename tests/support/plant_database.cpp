#include "tests/support/plant_database.h"

#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "database/sql_script.h"
#include "database/text.h"

namespace kx::test {
namespace {

// The databases of the server that no plant is in.
std::vector<std::string>& FreeDatabases() {
  static std::vector<std::string> names;
  return names;
}

// What each engine says its own way.
struct EngineSql {
  const char* schema_file;
  const char* tables;
  const char* now;
  const char* live;        // the schema that the plant is in
  const char* saved_room;  // makes the schema "saved"
  const char* key_counters;
  std::vector<std::string> restore_key_counters;
};

const EngineSql& SqlOf(DatabaseKind kind) {
  static const EngineSql kSqliteSql = {
      .schema_file = "/sqlite.sql",
      .tables = "select name from sqlite_master where type = 'table' and name like 'T!_%' escape '!'",
      .now = "select datetime('now', 'localtime')",
      .live = "main",
      .saved_room = "attach ':memory:' as saved",
      .key_counters = "select * from sqlite_sequence",
      .restore_key_counters = {"delete from sqlite_sequence",
                               "insert into sqlite_sequence select * from saved.KEY_COUNTERS"},
  };
  static const EngineSql kPostgresSql = {
      .schema_file = "/postgresql.sql",
      .tables = "select tablename from pg_tables where schemaname = 'public' order by 1",
      .now = "select date_trunc('second', localtimestamp)",
      .live = "public",
      .saved_room = "drop schema if exists saved cascade; create schema saved",
      .key_counters =
          "select sequencename::text as NAME, LAST_VALUE from pg_sequences where schemaname = 'public'",
      .restore_key_counters =
          {"select setval(NAME::regclass, coalesce(LAST_VALUE, 1), LAST_VALUE is not null) "
           "from saved.KEY_COUNTERS"},
  };
  return kind == DatabaseKind::kSqlite ? kSqliteSql : kPostgresSql;
}

// Functions of SQLite that the tests' queries use.
constexpr const char* kPostgresFunctions = R"(
create or replace function substr(timestamp, int) returns text immutable language sql
  as 'select substr($1::text, $2)';
create or replace function substr(timestamp, int, int) returns text immutable language sql
  as 'select substr($1::text, $2, $3)';
create or replace function round(double precision, int) returns double precision immutable language sql
  as 'select round($1::numeric, $2)::double precision';
create or replace function julianday(timestamp) returns double precision immutable language sql
  as 'select extract(epoch from $1) / 86400 + 2440587.5';
)";

}  // namespace

DatabaseKind TestedDatabase() {
  const char* const name = getenv("KXDATA7_TEST_DATABASE");
  if (name == nullptr || name == std::string_view("sqlite")) return DatabaseKind::kSqlite;
  if (name == std::string_view("postgresql")) return DatabaseKind::kPostgres;
  throw std::runtime_error(Concat("KXDATA7_TEST_DATABASE names no database: ", name));
}

PostgresServer& TestServer(bool durable) {
  static PostgresServer server(durable);
  [[maybe_unused]] static const bool has_terminal = [] {
    Connection link(OpenEngine);
    link.Open(server.ConnectionString());
    link.ExecuteDirect("create role terminal login");
    return true;
  }();
  return server;
}

PlantDatabase::PlantDatabase(DatabaseKind kind) : kind_(kind) {
  if (kind == DatabaseKind::kPostgres) {
    auto& free = FreeDatabases();
    server_database_ = free.empty() ? TestServer().CreateDatabase() : free.back();
    if (!free.empty()) free.pop_back();
  }
  OpenLink();
  link.Begin();
  for (const std::string& table : Tables()) link.ExecuteDirect("drop table " + table);
  std::ifstream schema(std::string(KXDATA7_SCHEMA_FOLDER) + SqlOf(kind).schema_file);
  RunScript(std::string(std::istreambuf_iterator<char>(schema), {}));
  if (kind == DatabaseKind::kPostgres) {
    RunScript(kPostgresFunctions);
    link.ExecuteDirect("grant select, insert, update, delete on all tables in schema public to terminal");
  }
  link.Commit();
}

PlantDatabase::~PlantDatabase() {
  if (!server_database_.empty()) FreeDatabases().push_back(server_database_);
}

void PlantDatabase::OpenLink() {
  link.Open(kind_ == DatabaseKind::kPostgres ? TestServer().ConnectionString(server_database_)
                                             : connection_string() + ";Mode=ReadWriteCreate");
}

std::string PlantDatabase::connection_string() const {
  if (kind_ == DatabaseKind::kPostgres) return TestServer().ConnectionString(server_database_, "terminal");
  return "Provider=SQLite;Synchronous=Normal;Data Source=" + file();
}

std::vector<std::string> PlantDatabase::Tables() {
  std::vector<std::string> names;
  for (const Value& name : link.ExecuteDirect(SqlOf(kind_).tables).values) names.push_back(name.ToText());
  return names;
}

std::string PlantDatabase::Now() { return link.ExecuteDirect(SqlOf(kind_).now).at(0, 0).ToText(); }

void PlantDatabase::EndOtherLinks() {
  link.ExecuteDirect(
      "select pg_terminate_backend(pid, 10000) from pg_stat_activity where datname = current_database() and "
      "pid "
      "!= pg_backend_pid()");
}

void PlantDatabase::RunScript(std::string_view statements) {
  for (const std::string& statement : SplitStatements(statements)) link.ExecuteDirect(statement);
}

// A server gets them in one round trip.
void PlantDatabase::RunTogether(const std::vector<std::string>& statements) {
  link.Begin();
  if (kind_ == DatabaseKind::kPostgres) {
    std::string all;
    for (const std::string& statement : statements) Append(all, statement, "; ");
    link.ExecuteDirect(all);
  } else {
    for (const std::string& statement : statements) link.ExecuteDirect(statement);
  }
  link.Commit();
}

void PlantDatabase::CopyTables(std::string_view from, std::string_view to, std::vector<std::string> also) {
  std::vector<std::string> statements;
  for (const std::string& table : saved_tables_) {
    statements.push_back(Concat("delete from ", to, ".", table));
    statements.push_back(Concat("insert into ", to, ".", table, " select * from ", from, ".", table));
  }
  for (std::string& statement : also) statements.push_back(std::move(statement));
  RunTogether(statements);
}

void PlantDatabase::Save() {
  const EngineSql& sql = SqlOf(kind_);
  if (saved_tables_.empty()) {
    saved_tables_ = Tables();
    link.ExecuteDirect(sql.saved_room);
    std::vector<std::string> statements;
    for (const std::string& table : saved_tables_)
      statements.push_back(Concat("create table saved.", table, " as select * from ", table));
    statements.push_back(Concat("create table saved.KEY_COUNTERS as ", sql.key_counters));
    RunTogether(statements);
    return;
  }
  CopyTables(sql.live, "saved",
             {"delete from saved.KEY_COUNTERS", Concat("insert into saved.KEY_COUNTERS ", sql.key_counters)});
}

void PlantDatabase::Restore() { CopyTables("saved", SqlOf(kind_).live, SqlOf(kind_).restore_key_counters); }

}  // namespace kx::test
