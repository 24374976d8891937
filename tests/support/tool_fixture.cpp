#include "tests/support/tool_fixture.h"

#include <sys/wait.h>

#include <fstream>
#include <sstream>

#include "database/connection.h"

namespace kx::tool {
namespace {

namespace fs = std::filesystem;

std::string Doubled(const std::string& text) {
  std::string doubled;
  for (const char c : text) doubled.append(c == '\'' ? 2 : 1, c);
  return doubled;
}

}  // namespace

std::string ReadFile(const fs::path& file) {
  std::ifstream input(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(input), {}};
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream input(text);
  for (std::string line; std::getline(input, line);) lines.push_back(line);
  return lines;
}

ToolTest::ToolTest() : tool_(KXDATA7_TOOL) {
  Write("leaks", "leak:_dlerror_run\nleak:libgssapi\nleak:libkrb5\n");
  connection_string_ = "Provider=SQLite;Data Source=" + (folder_ / plant_).string();
}

ToolTest::Result ToolTest::Run(const std::string& arguments) {
  const std::string command =
      "cd '" + folder_.string() + "' && >output 2>errors </dev/null env -u KXDATA7_LIBRARY " + environment_ +

      // The leak checker of this compiler crashes on the thread storage of the library that the tool
      // unloads. What dlerror and the Kerberos library of PostgreSQL's client keep there looks lost then.
      " LSAN_OPTIONS=use_tls=0:suppressions=leaks:print_suppressions=0 '" + tool_.string() + "' " + arguments;
  const int status = std::system(command.c_str());
  Result result = {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(folder_ / "output"),
                   ReadFile(folder_ / "errors")};
  EXPECT_EQ((result.output + result.errors).find(kPassword), std::string::npos)
      << result.output << result.errors;
  return result;
}

std::string ToolTest::Do(const std::string& arguments) {
  const Result result = Run(arguments);
  EXPECT_EQ(result.status, 0) << arguments << '\n' << result.errors;
  EXPECT_EQ(result.errors, "") << arguments;
  return result.output;
}

std::vector<CsvRow> ToolTest::DoCsv(const std::string& arguments) {
  std::vector<CsvRow> rows;
  const auto lines = Lines(Do(arguments + " --csv"));
  const auto split = [](const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream input(line + ",");
    for (std::string field; std::getline(input, field, ',');) fields.push_back(field);
    return fields;
  };
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const auto titles = split(lines[0]);
    const auto fields = split(lines[i]);
    auto& row = rows.emplace_back();
    for (std::size_t column = 0; column < titles.size(); ++column) row[titles[column]] = fields.at(column);
  }
  return rows;
}

void ToolTest::ExpectError(const std::string& arguments, const std::string& expected) {
  const Result result = Run(arguments);
  EXPECT_GT(result.status, 0) << arguments;
  EXPECT_EQ(Lines(result.errors).size(), 1U) << arguments << '\n' << result.errors;
  EXPECT_TRUE(result.errors.starts_with("kxdata7: ")) << result.errors;
  EXPECT_NE(result.errors.find(expected), std::string::npos) << arguments << '\n' << result.errors;
}

void ToolTest::Write(const char* file, const std::string& text) {
  std::ofstream(folder_ / file, std::ios::binary) << text;
}

Value ToolTest::Query(const std::string& sql) {
  Connection connection;
  connection.Open(connection_string_);
  const Rows rows = connection.ExecuteDirect(sql);
  return rows.count() == 0 ? Value() : rows.at(0, 0);
}

EveryPlantTest::EveryPlantTest() {
  if (!embedded()) UseNewDatabase();
}

void EveryPlantTest::UseNewDatabase() {
  if (server == nullptr) server = std::make_unique<test::PostgresServer>();
  connection_string_ = server->ConnectionString(server->CreateDatabase()) + ";Pwd=" + kPassword;
  plant_ = "'" + connection_string_ + "'";
}

void EveryPlantTest::UseNewPlant() {
  if (!embedded()) return UseNewDatabase();
  fs::remove(folder_ / "plant.db");
}

void EveryPlantTest::OnDelete(const std::string& sqlite, const std::string& postgresql) {
  if (embedded()) {
    Query("create trigger MEDDLE before delete on T_SFC_MDC_LOG begin " + sqlite + "; end");
  } else {
    Query("create or replace function MEDDLE() returns trigger language plpgsql as 'begin " +
          Doubled(postgresql) + "; return old; end'");
    Query("create trigger MEDDLE before delete on T_SFC_MDC_LOG for each row execute function MEDDLE()");
  }
}

void EveryPlantTest::NoMoreOnDelete() {
  Query(embedded() ? "drop trigger MEDDLE" : "drop trigger MEDDLE on T_SFC_MDC_LOG");
}

}  // namespace kx::tool
