#include <unistd.h>

#include "plant/platform.h"

namespace kx::tool {

std::vector<std::string> Arguments(int argc, char** argv) { return {argv + 1, argv + argc}; }

std::filesystem::path OwnFolder() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

bool ToLocalTime(std::time_t moment, std::tm& local) { return localtime_r(&moment, &local) != nullptr; }

bool IsErrorATerminal() { return isatty(STDERR_FILENO) != 0; }

}  // namespace kx::tool
