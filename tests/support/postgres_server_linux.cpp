#include "tests/support/postgres_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <pwd.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "database/database_error.h"
#include "database/odbc_engine.h"

namespace kx::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestWait{60};
constexpr std::chrono::milliseconds kPoll{20};

struct Account {
  uid_t user;
  gid_t group;
};

// Whom the server runs as: the caller, or a user without rights when that is root.
Account ServerAccount() {
  if (geteuid() != 0) return {geteuid(), getegid()};
  for (const char* name : {"postgres", "nobody"}) {
    if (const passwd* entry = getpwnam(name)) return {entry->pw_uid, entry->pw_gid};
  }
  throw std::runtime_error("no account to run PostgreSQL as");
}

int FreePort() {
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const any_address = reinterpret_cast<sockaddr*>(&address);
  const bool bound = bind(probe, any_address, size) == 0 && getsockname(probe, any_address, &size) == 0;
  close(probe);
  if (!bound) throw std::runtime_error("no free port");
  return ntohs(address.sin_port);
}

// State letter and parent of a process; no state when there is none.
struct ProcessInfo {
  char state = 0;
  pid_t parent = 0;
};
ProcessInfo ReadProcess(const fs::path& folder) {
  std::ifstream file(folder / "stat");
  std::string line;
  std::getline(file, line);
  ProcessInfo info;
  const std::size_t name_end = line.rfind(')');
  if (name_end != std::string::npos) sscanf(line.c_str() + name_end + 1, " %c %d", &info.state, &info.parent);
  return info;
}

std::vector<pid_t> ChildrenOf(pid_t parent) {
  std::vector<pid_t> children;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const pid_t id = atoi(entry.path().filename().c_str());
    if (id > 0 && ReadProcess(entry.path()).parent == parent) children.push_back(id);
  }
  return children;
}

std::unique_ptr<Engine> Open(const std::string& connection_string) {
  return OpenOdbcEngine(kx::ConnectionString::Parse(connection_string));
}

template <class Condition>
bool WaitUntil(Condition condition) {
  for (const auto end = steady_clock::now() + kLongestWait; !condition();
       std::this_thread::sleep_for(kPoll)) {
    if (steady_clock::now() > end) return false;
  }
  return true;
}

}  // namespace

PostgresServer::PostgresServer(bool durable)
    : programs_(FindPrograms()), port_(FreePort()), durable_(durable) {
  std::string name = (fs::temp_directory_path() / "kxdata7-postgres-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  folder_ = name;
  server_ = NewCluster();
  try {
    MakeCluster();
    Start();
  } catch (...) {
    Stop();
    throw;
  }
}

PostgresServer::~PostgresServer() { Stop(); }

std::string PostgresServer::FindPrograms() const {
  fs::path found;
  std::error_code none;
  for (const auto& version : fs::directory_iterator("/usr/lib/postgresql", none)) {
    const fs::path programs = version.path() / "bin";
    if (fs::exists(programs / "initdb") && programs > found) found = programs;
  }
  if (found.empty()) throw std::runtime_error("PostgreSQL is not installed");
  return found.string();
}

PostgresServer::Cluster PostgresServer::NewCluster() {
  const std::string number = std::to_string(++clusters_);
  return {folder_ / ("data" + number), "127.0.0." + number};
}

void PostgresServer::MakeCluster() {
  const Account account = ServerAccount();
  if (geteuid() == 0 && chown(folder_.c_str(), account.user, account.group) != 0) {
    throw std::runtime_error("the temporary folder cannot be given to the server's account");
  }
  RunToEnd({programs_ + "/initdb", "--pgdata=" + server_.data.string(), "--username=plant", "--auth=trust",
            "--encoding=UTF8", "--no-locale", "--no-sync", "--no-instructions"});
}

pid_t PostgresServer::Spawn(const std::vector<std::string>& command) const {
  const Account account = ServerAccount();
  const std::string log = (folder_ / "log").string();
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);

  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no new process");
  if (child > 0) return child;
  const bool is_root = geteuid() == 0;
  const bool ready =
      (!is_root || (setgroups(0, nullptr) == 0 && setgid(account.group) == 0 && setuid(account.user) == 0)) &&
      chdir(folder_.c_str()) == 0;
  const int output = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (ready && output >= 0) {
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    setpgid(0, 0);                     // keys pressed at the test's terminal are not for it
    prctl(PR_SET_PDEATHSIG, SIGQUIT);  // when a test crashes, it goes, too
    execv(arguments[0], arguments.data());
  }
  _exit(127);
}

void PostgresServer::RunToEnd(const std::vector<std::string>& command) const {
  int status = 0;
  waitpid(Spawn(command), &status, 0);
  if (status != 0) throw std::runtime_error(command.front() + " failed: " + Log());
}

void PostgresServer::Start(Cluster& cluster) {
  std::vector<std::string> command = {programs_ + "/postgres", "-D", cluster.data.string(), "-p",
                                      std::to_string(port_)};
  const auto set = [&](std::initializer_list<const char*> settings) {
    for (const char* setting : settings) command.insert(command.end(), {"-c", setting});
  };
  set({"unix_socket_directories=", "shared_buffers=32MB"});
  command.insert(command.end(), {"-c", "listen_addresses=" + cluster.address});
  if (!durable_) set({"fsync=off", "full_page_writes=off"});
  cluster.process = Spawn(command);
  std::string reason;
  const bool ready = WaitUntil([&] {
    if (waitpid(cluster.process, nullptr, WNOHANG) != 0) {
      cluster.process = 0;
      throw std::runtime_error("PostgreSQL did not start: " + Log());
    }
    try {
      Open(ConnectionStringOf(cluster.address, "postgres", "plant"));
      return true;
    } catch (const DatabaseError& error) {
      reason = error.description();
      return false;
    }
  });
  if (!ready) throw std::runtime_error("PostgreSQL takes no connections: " + reason + " " + Log());
}

std::string PostgresServer::ConnectionStringOf(const std::string& addresses, std::string_view database,
                                               std::string_view account) const {
  return "Driver={PostgreSQL Unicode};Server=" + addresses + ";Port=" + std::to_string(port_) +
         ";Database=" + std::string(database) + ";Uid=" + std::string(account);
}

std::string PostgresServer::ConnectionString(std::string_view database, std::string_view account) const {
  if (standby_.address.empty()) return ConnectionStringOf(server_.address, database, account);
  return ConnectionStringOf(server_.address + "," + standby_.address, database, account) +
         ";pqopt={target_session_attrs=read-write}";
}

void PostgresServer::AddStandby() {
  standby_ = NewCluster();
  RunToEnd({programs_ + "/pg_basebackup", "--pgdata=" + standby_.data.string(), "--host=" + server_.address,
            "--port=" + std::to_string(port_), "--username=plant", "--write-recovery-conf",
            "--checkpoint=fast", "--no-sync"});
  Start(standby_);
  const auto link = Open(ConnectionString());
  link->Execute("ALTER SYSTEM SET synchronous_standby_names = '*'", {});
  link->Execute("SELECT pg_reload_conf()", {});
  const bool ready = WaitUntil([&] {
    return link->Execute("SELECT 1 FROM pg_stat_replication WHERE sync_state = 'sync'", {}).count() == 1;
  });
  if (!ready) throw std::runtime_error("the standby does not follow: " + Log());
}

void PostgresServer::PromoteStandby() {
  RunToEnd({programs_ + "/pg_ctl", "promote", "--pgdata=" + standby_.data.string()});
  fs::remove_all(server_.data);
  server_ = std::exchange(standby_, {});
}

std::string PostgresServer::CreateDatabase(std::string_view copy_of) {
  std::string name = "plant" + std::to_string(++databases_);
  Open(ConnectionString())->Execute("CREATE DATABASE " + name + " TEMPLATE " + std::string(copy_of), {});
  return name;
}

void PostgresServer::Kill() { Kill(server_); }

// The server's children live in sessions of their own; held still, it can neither make new ones nor clean up.
void PostgresServer::Kill(Cluster& cluster) {
  if (cluster.process == 0) return;
  kill(cluster.process, SIGSTOP);
  const std::vector<pid_t> children = ChildrenOf(cluster.process);
  for (const pid_t child : children) kill(child, SIGKILL);
  kill(cluster.process, SIGKILL);
  waitpid(cluster.process, nullptr, 0);
  cluster.process = 0;
  const bool gone = WaitUntil([&] {
    for (const pid_t child : children) {
      const char state = ReadProcess("/proc/" + std::to_string(child)).state;
      if (state != 0 && state != 'Z' && state != 'X') return false;
    }
    return true;
  });
  if (!gone) throw std::runtime_error("a process of PostgreSQL cannot be ended");
}

void PostgresServer::Stop(Cluster& cluster) noexcept {
  if (cluster.process == 0) return;
  kill(cluster.process, SIGQUIT);
  if (!WaitUntil([&] { return waitpid(cluster.process, nullptr, WNOHANG) != 0; })) Kill(cluster);
  cluster.process = 0;
}

void PostgresServer::Stop() noexcept {
  Stop(standby_);
  Stop(server_);
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

std::string PostgresServer::Log() const {
  std::ifstream file(folder_ / "log");
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kx::test
