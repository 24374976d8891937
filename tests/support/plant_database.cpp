#include "tests/support/plant_database.h"

#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>

#include "database/sql_script.h"
#include "database/text.h"
#include "session/session.h"

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
      .saved_room = "do 'begin drop schema if exists saved cascade; create schema saved; end'",
      .key_counters =
          "select sequencename::text as NAME, LAST_VALUE from pg_sequences where schemaname = 'public'",
      .restore_key_counters =
          {"perform setval(NAME::regclass, coalesce(LAST_VALUE, 1), LAST_VALUE is not null) "
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

namespace {

std::string Environment(const char* name, const char* if_missing) {
  const char* const value = getenv(name);
  return value == nullptr ? if_missing : value;
}

std::string TestedName() { return Environment("KXDATA7_TEST_DATABASE", "sqlite"); }

std::string SchemaText(const char* file) {
  std::ifstream schema(std::string(KXDATA7_SCHEMA_FOLDER) + file);
  return {std::istreambuf_iterator<char>(schema), {}};
}

}  // namespace

DatabaseKind TestedDatabase() {
  const std::string name = TestedName();
  if (name == "sqlite") return DatabaseKind::kSqlite;
  if (name == "postgresql") return DatabaseKind::kPostgres;
  if (name.find('=') != std::string::npos) return DatabaseKind::kGiven;
  throw std::runtime_error(Concat("KXDATA7_TEST_DATABASE names no database: ", name));
}

std::vector<int> TestedTypes() {
  if (TestedDatabase() != DatabaseKind::kGiven) return {0, 1, 2};
  const std::string dialect = Environment("KXDATA7_TEST_DIALECT", "");
  const std::map<std::string, int> types = {{"oracle", 0}, {"access", 1}, {"sqlserver", 2}};
  if (!types.contains(dialect))
    throw std::runtime_error("KXDATA7_TEST_DIALECT is to say oracle, access or sqlserver");
  return {types.at(dialect)};
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
  if (kind == DatabaseKind::kGiven) {
    const bool identity_insert = link.target() == SqlTarget::kNative && TestedTypes().front() == 2;
    mirror_.emplace(link, SchemaText("/sqlite.sql"), identity_insert);
    mirror_->Empty();
    return;
  }
  link.Begin();
  for (const std::string& table : Tables()) link.ExecuteDirect("drop table " + table);
  RunScript(SchemaText(SqlOf(kind).schema_file));
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
  if (kind_ == DatabaseKind::kPostgres) return link.Open(TestServer().ConnectionString(server_database_));
  link.Open(connection_string() + (kind_ == DatabaseKind::kSqlite ? ";Mode=ReadWriteCreate" : ""));
}

std::string PlantDatabase::connection_string() const {
  if (kind_ == DatabaseKind::kGiven) return TestedName();
  if (kind_ == DatabaseKind::kPostgres) return TestServer().ConnectionString(server_database_, "terminal");
  return "Provider=SQLite;Synchronous=Normal;Data Source=" + file();
}

std::vector<std::string> PlantDatabase::Tables() {
  if (mirror_) return mirror_->tables();
  std::vector<std::string> names;
  for (const Value& name : link.ExecuteDirect(SqlOf(kind_).tables).values) names.push_back(name.ToText());
  return names;
}

DateTime PlantDatabase::Now() {
  if (kind_ != DatabaseKind::kGiven) return link.ExecuteDirect(SqlOf(kind_).now).at(0, 0).ToDateTime();
  Session session;
  session.database_type = static_cast<DatabaseType>(TestedTypes().front());
  session.connection.Open(connection_string());
  return GetServerTime(session);
}

void PlantDatabase::EndOtherLinks() {
  link.ExecuteDirect(
      "select pg_terminate_backend(pid, 10000) from pg_stat_activity where datname = current_database() and "
      "pid "
      "!= pg_backend_pid()");
}

Rows PlantDatabase::Run(std::string_view sql) {
  return mirror_ ? mirror_->Run(sql) : link.ExecuteDirect(sql);
}

void PlantDatabase::RunScript(std::string_view statements) {
  for (const std::string& statement : SplitStatements(statements)) Run(statement);
}

// A server gets them in one round trip.
void PlantDatabase::RunTogether(const std::vector<std::string>& statements) {
  link.Begin();
  if (kind_ == DatabaseKind::kPostgres) {
    std::string all;
    for (const std::string& statement : statements) Append(all, statement, "; ");
    for (std::size_t at = all.find('\''); at != all.npos; at = all.find('\'', at + 2))
      all.insert(at, 1, '\'');
    link.ExecuteDirect(Concat("do 'begin ", all, "end'"));
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
  if (mirror_) return mirror_->Save();
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

void PlantDatabase::Restore() {
  if (mirror_) return mirror_->Restore();
  CopyTables("saved", SqlOf(kind_).live, SqlOf(kind_).restore_key_counters);
}

}  // namespace kx::test
