#include <fcntl.h>
#include <unistd.h>

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

std::string ProcessName() {
  char host[256] = "";
  gethostname(host, sizeof host - 1);
  return "process " + std::to_string(getpid()) + " on " + host;
}

bool IsOutputATerminal() { return isatty(STDOUT_FILENO) != 0; }

bool IsErrorATerminal() { return isatty(STDERR_FILENO) != 0; }

}  // namespace kx::tool
