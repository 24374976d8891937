// What only a database in a file can be: missing, no database, empty, read-only.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "tests/support/plant.h"

namespace kx::test {
namespace {

TEST(SqlitePlantTest, WhatIsNoPlant) {
  TemporaryFolder folder;
  FakeHost host;
  const std::string prefix = "Provider=SQLite;Data Source=" + (folder.path() / "").string();
  std::ofstream(folder.path() / "text") << std::string(5000, 'x');
  std::ofstream(folder.path() / "empty").flush();
  Component component;
  EXPECT_FALSE(component.IsConnected());
  const std::string closed = "Operation is not allowed when the object is closed.";
  EXPECT_EQ(component.Next(), (Outcome{false, closed}));
  EXPECT_EQ(component.Append({1, 1, 1, 1, 1}, "", 0), (Outcome{false, closed}));
  for (const char* name : {"missing", "text", ""}) {
    const Outcome outcome = component.Connect(prefix + name, kxdata7::Dialect{2});
    EXPECT_FALSE(outcome.done || outcome.error.empty()) << name;
    EXPECT_FALSE(component.IsConnected());
  }
  // A database without the tables is a connection, but not to a plant.
  EXPECT_EQ(component.Connect(prefix + "empty", kxdata7::Dialect{7}), (Outcome{true, ""}));
  EXPECT_FALSE(component.IsConnected());
  EXPECT_EQ(component.Next(), (Outcome{false, "Type mismatch"}));
  EXPECT_EQ(component.Append({1, 1, 1, 1, 1}, "", 0), (Outcome{false, "Type mismatch"}));
  EXPECT_EQ(component.Connect(prefix + "empty", kxdata7::Dialect{0}), (Outcome{true, ""}));
  EXPECT_EQ(component.Next(), (Outcome{false, "no such table: T_SFC_MDC_LOG"}));
}

// Any text fits into a column of SQLite.
TEST(SqlitePlantTest, DateThatIsNone) {
  Plant plant(0);
  plant.Queue("08:00 part end");
  plant.Execute("update T_SFC_MACHINE_DATA set SHIFT_END = 'soon'");
  EXPECT_EQ(plant.component.Next(), (Outcome{false, "Type mismatch"}));
  EXPECT_EQ(plant.Query("select count(*) from T_SFC_MDC_LOG"), "1");
}

// Nothing can be begun or appended while another session writes.
TEST(SqlitePlantTest, AnotherWriter) {
  Plant plant(0);
  plant.component.Connect(plant.connection_string() + ";Busy Timeout=0", kxdata7::Dialect{0});
  plant.db.Begin();
  EXPECT_EQ(plant.component.Append({1, 2, 3, 1, 109}, "", 0),
            (Outcome{false, "Append Item To Log failed because a transaction could not be started."}));
  EXPECT_TRUE(plant.component.IsConnected());
  plant.db.Rollback();
  EXPECT_EQ(plant.component.Append({1, 2, 3, 1, 109}, "", 0), (Outcome{true, ""}));
}

// As an account that may only read, which root never is: in a process of its own.
TEST(SqlitePlantTest, ReadOnlyFile) {
  Plant plant(0);
  plant.Queue("08:00 job end");
  plant.component.Connect("Provider=SQLite;Data Source=:memory:", kxdata7::Dialect{0});
  plant.db.Close();
  std::filesystem::permissions(plant.database.file(),
                               std::filesystem::perms::owner_read | std::filesystem::perms::others_read);
  std::filesystem::permissions(std::filesystem::path(plant.database.file()).parent_path(),
                               std::filesystem::perms(0555));
  const pid_t child = fork();
  if (child == 0) {
    if (getuid() == 0 && setuid(65534) != 0) _exit(9);
    Component component;
    const Outcome connected = component.Connect(plant.connection_string(), kxdata7::Dialect{0});
    const Outcome outcome = component.Next();
    _exit(!outcome.done && !outcome.error.empty() && (connected.done || !connected.error.empty()) ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
}  // namespace kx::test
