#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kx::test {

// A PostgreSQL server of the test's own: a new cluster in a temporary folder, listening on a free port of a
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
  void Start() { Start(server_); }

  // A second server that has every commit before it is answered. The connection string then names both and
  // leads to the one that can be written to.
  void AddStandby();
  // Makes the standby the server in place of the one that was killed.
  void PromoteStandby();

 private:
  struct Cluster {
    std::filesystem::path data;
    std::string address;  // empty: there is none
    pid_t process = 0;    // 0: not running
  };

  std::string FindPrograms() const;
  Cluster NewCluster();
  void MakeCluster();
  // Runs a program of PostgreSQL as the server's account, with its output in the log file.
  pid_t Spawn(const std::vector<std::string>& command) const;
  void RunToEnd(const std::vector<std::string>& command) const;
  void Start(Cluster& cluster);
  static void Kill(Cluster& cluster);
  static void Stop(Cluster& cluster) noexcept;
  std::string ConnectionStringOf(const std::string& addresses, std::string_view database,
                                 std::string_view account) const;
  std::string Log() const;
  void Stop() noexcept;

  std::filesystem::path folder_;
  std::string programs_;  // folder
  int port_ = 0;          // of all clusters
  bool durable_ = false;
  Cluster server_, standby_;
  int clusters_ = 0;
  int databases_ = 0;
};

}  // namespace kx::test
