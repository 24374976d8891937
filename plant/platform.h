#pragma once

#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kx::tool {

// Texts are UTF-8 in the tool; file names become what the system has.
inline std::filesystem::path ToPath(std::string_view text) { return std::u8string(text.begin(), text.end()); }
inline std::string ToText(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

// ---- What the systems do each in their own way ----

// The program's arguments without its name, in UTF-8. Prepares the terminal for UTF-8, too.
std::vector<std::string> Arguments(int argc, char** argv);

std::filesystem::path OwnFolder();  // the folder of the program; empty when unknown

// The local calendar time of a moment; false: it lies out of range.
bool ToLocalTime(std::time_t moment, std::tm& local);

// Makes the names of the files in a folder survive a loss of power, where a system leaves that to programs.
void SyncFolder(const std::filesystem::path& folder);

// Makes a new folder that nobody else may read. Failures are std::system_error.
void MakePrivateFolder(const std::filesystem::path& folder);

// From now on `files` and then their `folder` go before a signal ends the program, where there are signals;
// an empty folder: no longer.
void RemoveOnSignal(const std::filesystem::path& folder, const std::vector<std::filesystem::path>& files);

std::string ProcessName();  // "process 4711 on hall-2"

bool IsOutputATerminal();
bool IsErrorATerminal();  // the standard error

}  // namespace kx::tool
