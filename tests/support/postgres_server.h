#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kx::test {

// A PostgreSQL server of the test's own: a new cluster in a temporary folder, listening on a free port of the
// loopback address alone, with the superuser `plant` who needs no password. It never runs as root. The
// destructor stops it and removes the folder. Started by the thread that lives longest: it ends with it.
class PostgresServer {
 public:
  // Commits wait for the disk only when `durable`: for figures. Tests end processes, never the machine, and
  // what a process has written stays.
  explicit PostgresServer(bool durable = false);
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;
  ~PostgresServer();

  // A new database, as a copy of another one, to which nobody may be connected.
  std::string CreateDatabase(std::string_view copy_of = "template1");
  std::string ConnectionString(std::string_view database = "postgres",
                               std::string_view account = "plant") const;
  int port() const { return port_; }

  // Ends all processes of the server at once, as a failing machine would.
  void Kill();
  // Starts the server again, on the same port and folder, and waits until it takes connections.
  void Start();

 private:
  std::string FindPrograms() const;
  void MakeCluster();
  // Runs a program of PostgreSQL as the server's account, with its output in the log file.
  pid_t Spawn(const std::vector<std::string>& command) const;
  std::string Log() const;
  void Stop() noexcept;

  std::filesystem::path folder_;
  std::string programs_;  // folder
  int port_ = 0;
  bool durable_ = false;
  pid_t server_ = 0;  // 0: not running
  int databases_ = 0;
};

}  // namespace kx::test
