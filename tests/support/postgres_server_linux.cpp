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

void PostgresServer::MakeCluster() {
  const Account account = ServerAccount();
  if (geteuid() == 0 && chown(folder_.c_str(), account.user, account.group) != 0) {
    throw std::runtime_error("the temporary folder cannot be given to the server's account");
  }
  const pid_t initdb =
      Spawn({programs_ + "/initdb", "--pgdata=" + (folder_ / "data").string(), "--username=plant",
             "--auth=trust", "--encoding=UTF8", "--no-locale", "--no-sync", "--no-instructions"});
  int status = 0;
  waitpid(initdb, &status, 0);
  if (status != 0) throw std::runtime_error("initdb failed: " + Log());
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

void PostgresServer::Start() {
  std::vector<std::string> command = {programs_ + "/postgres", "-D", (folder_ / "data").string(), "-p",
                                      std::to_string(port_)};
  const auto set = [&](std::initializer_list<const char*> settings) {
    for (const char* setting : settings) command.insert(command.end(), {"-c", setting});
  };
  set({"listen_addresses=127.0.0.1", "unix_socket_directories=", "shared_buffers=32MB"});
  if (!durable_) set({"fsync=off", "full_page_writes=off", "wal_level=minimal", "max_wal_senders=0"});
  server_ = Spawn(command);
  std::string reason;
  const bool ready = WaitUntil([&] {
    if (waitpid(server_, nullptr, WNOHANG) != 0) {
      server_ = 0;
      throw std::runtime_error("PostgreSQL did not start: " + Log());
    }
    try {
      OpenOdbcEngine(kx::ConnectionString::Parse(ConnectionString()));
      return true;
    } catch (const DatabaseError& error) {
      reason = error.description();
      return false;
    }
  });
  if (!ready) throw std::runtime_error("PostgreSQL takes no connections: " + reason + " " + Log());
}

std::string PostgresServer::ConnectionString(std::string_view database, std::string_view account) const {
  return "Driver={PostgreSQL Unicode};Server=127.0.0.1;Port=" + std::to_string(port_) +
         ";Database=" + std::string(database) + ";Uid=" + std::string(account);
}

std::string PostgresServer::CreateDatabase(std::string_view copy_of) {
  std::string name = "plant" + std::to_string(++databases_);
  OpenOdbcEngine(kx::ConnectionString::Parse(ConnectionString()))
      ->Execute("CREATE DATABASE " + name + " TEMPLATE " + std::string(copy_of), {});
  return name;
}

// The server's children live in sessions of their own; held still, it can neither make new ones nor clean up.
void PostgresServer::Kill() {
  if (server_ == 0) return;
  kill(server_, SIGSTOP);
  const std::vector<pid_t> children = ChildrenOf(server_);
  for (const pid_t child : children) kill(child, SIGKILL);
  kill(server_, SIGKILL);
  waitpid(server_, nullptr, 0);
  server_ = 0;
  const bool gone = WaitUntil([&] {
    for (const pid_t child : children) {
      const char state = ReadProcess("/proc/" + std::to_string(child)).state;
      if (state != 0 && state != 'Z' && state != 'X') return false;
    }
    return true;
  });
  if (!gone) throw std::runtime_error("a process of PostgreSQL cannot be ended");
}

void PostgresServer::Stop() noexcept {
  if (server_ != 0) {
    kill(server_, SIGQUIT);
    if (!WaitUntil([&] { return waitpid(server_, nullptr, WNOHANG) != 0; })) Kill();
    server_ = 0;
  }
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

std::string PostgresServer::Log() const {
  std::ifstream file(folder_ / "log");
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kx::test
