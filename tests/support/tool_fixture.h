// The tool as a person runs it: in a folder of its own, on a plant that a test names.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "database/value.h"
#include "tests/support/postgres_server.h"
#include "tests/support/temporary_folder.h"

namespace kx::tool {

// In every connection string here; the tool must never print it.
constexpr const char* kPassword = "geheim";

using CsvRow = std::map<std::string, std::string>;

std::string ReadFile(const std::filesystem::path& file);
std::vector<std::string> Lines(const std::string& text);

class ToolTest : public ::testing::Test {
 protected:
  struct Result {
    int status;
    std::string output;
    std::string errors;
  };

  ToolTest();

  // Runs the tool in the temporary folder, with the arguments as a shell reads them.
  Result Run(const std::string& arguments);

  // The same for a run that must succeed in silence on the standard error. Returns what it printed.
  std::string Do(const std::string& arguments);

  std::vector<CsvRow> DoCsv(const std::string& arguments);

  // A failing run: one line on the standard error that holds `expected`.
  void ExpectError(const std::string& arguments, const std::string& expected);

  void Write(const char* file, const std::string& text);

  // Runs one statement on the plant; the first field of its first row.
  Value Query(const std::string& sql);

  const TemporaryFolder temporary_folder_;
  const std::filesystem::path folder_ = temporary_folder_.path();
  std::string environment_ = "TZ=UTC PGTZ=UTC";
  std::filesystem::path tool_;
  std::string plant_ = "plant.db";  // as an argument for the tool
  std::string connection_string_;
};

// The cases that hold on an embedded database and on a server.
class EveryPlantTest : public ToolTest, public ::testing::WithParamInterface<const char*> {
 protected:
  EveryPlantTest();

  static bool embedded() { return GetParam() == std::string_view("sqlite"); }

  void UseNewDatabase();
  void UseNewPlant();

  // What the database does before a row of the queue is deleted.
  void OnDelete(const std::string& sqlite, const std::string& postgresql);
  void NoMoreOnDelete();

  static inline std::unique_ptr<test::PostgresServer> server;  // ends with the program
};

}  // namespace kx::tool
