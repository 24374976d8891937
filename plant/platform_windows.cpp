#include "plant/platform.h"

#include <windows.h>
// Windows' own base header comes first.
#include <io.h>
#include <shellapi.h>

#include "KXData7.h"

namespace kx::tool {

std::vector<std::string> Arguments(int, char**) {
  SetConsoleOutputCP(CP_UTF8);
  int count = 0;
  wchar_t** const given = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(kxdata7::ToUtf8(given[i]));
  LocalFree(given);
  return arguments;
}

std::filesystem::path OwnFolder() {
  wchar_t file[MAX_PATH];
  const DWORD length = GetModuleFileNameW(nullptr, file, MAX_PATH);
  if (length == MAX_PATH) return {};
  return std::filesystem::path(std::wstring_view(file, length)).parent_path();
}

bool ToLocalTime(std::time_t moment, std::tm& local) { return localtime_s(&local, &moment) == 0; }

void SyncFolder(const std::filesystem::path&) {}

void MakePrivateFolder(const std::filesystem::path& folder) {
  std::filesystem::create_directory(folder);  // the temporary folder is the user's own
}

void RemoveOnSignal(const std::filesystem::path&, const std::vector<std::filesystem::path>&) {}

std::string ProcessName() {
  wchar_t host[256] = L"";
  DWORD length = 256;
  GetComputerNameW(host, &length);
  return "process " + std::to_string(GetCurrentProcessId()) + " on " + kxdata7::ToUtf8(host);
}

bool IsOutputATerminal() { return _isatty(_fileno(stdout)) != 0; }

bool IsErrorATerminal() { return _isatty(_fileno(stderr)) != 0; }

}  // namespace kx::tool
