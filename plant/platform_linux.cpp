#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "plant/platform.h"

namespace kx::tool {

std::vector<std::string> Arguments(int argc, char** argv) { return {argv + 1, argv + argc}; }

std::filesystem::path OwnFolder() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

bool ToLocalTime(std::time_t moment, std::tm& local) { return localtime_r(&moment, &local) != nullptr; }

void SyncFolder(const std::filesystem::path& folder) {
  const int descriptor = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor == -1) return;
  fsync(descriptor);
  close(descriptor);
}

void MakePrivateFolder(const std::filesystem::path& folder) {
  if (mkdir(folder.c_str(), S_IRWXU) != 0)
    throw std::system_error(errno, std::generic_category(), folder.string());
}

namespace {

constexpr std::array kEndingSignals = {SIGTERM, SIGINT, SIGHUP};

// What the handler removes; nothing changes it while the handler is installed.
std::filesystem::path folder_to_remove;
std::vector<std::filesystem::path> files_to_remove;
std::array<struct sigaction, kEndingSignals.size()> dispositions;

void RemoveAndEnd(int signal) {
  for (const auto& file : files_to_remove) unlink(file.c_str());
  rmdir(folder_to_remove.c_str());
  std::signal(signal, SIG_DFL);
  raise(signal);  // takes effect when the handler returns
}

}  // namespace

void RemoveOnSignal(const std::filesystem::path& folder, const std::vector<std::filesystem::path>& files) {
  if (folder.empty()) {
    for (std::size_t i = 0; i < kEndingSignals.size(); ++i)
      sigaction(kEndingSignals[i], &dispositions[i], nullptr);
    return;
  }
  folder_to_remove = folder;
  files_to_remove = files;
  for (std::size_t i = 0; i < kEndingSignals.size(); ++i) {
    struct sigaction action {};
    action.sa_handler = RemoveAndEnd;
    sigaction(kEndingSignals[i], nullptr, &dispositions[i]);
    if (dispositions[i].sa_handler != SIG_IGN) sigaction(kEndingSignals[i], &action, nullptr);
  }
}

std::string ProcessName() {
  char host[256] = "";
  gethostname(host, sizeof host - 1);
  return "process " + std::to_string(getpid()) + " on " + host;
}

bool IsOutputATerminal() { return isatty(STDOUT_FILENO) != 0; }

bool IsErrorATerminal() { return isatty(STDERR_FILENO) != 0; }

}  // namespace kx::tool
