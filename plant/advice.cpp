#include "plant/advice.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "plant/platform.h"

namespace kx::tool {
namespace {

// A phrase of SQLite, PostgreSQL, their drivers or the driver manager, and what to do when it is read.
struct Advice {
  std::string_view phrase, advice;
};
constexpr std::string_view kNoPlant =
    "this is no plant, or one without all its tables; \"kxdata7 create\" adds what is missing";
constexpr std::string_view kNoRight =
    "the account lacks a right; \"kxdata7 grants\" prints those that it needs";
constexpr std::string_view kNoServer = "check Server and Port, and whether the server runs";
constexpr std::string_view kNoDriver = "check the name of the driver or data source, and install the driver";
constexpr std::string_view kFull =
    "make room on the disk; what was queued is not lost, and goes on by itself";
constexpr std::array<Advice, 18> kAdvice = {{
    {"no such table", kNoPlant},
    {"relation \"t_", kNoPlant},
    {"file is not a database", "this is no plant but some other file"},
    {"disk image is malformed",
     "the file is damaged: put its last backup in its place, and keep the damaged one"},
    {"Type mismatch", "a value in the plant is no date or no number; \"kxdata7 doctor\" names it"},
    {"readonly database",
     "the file or its folder may only be read; give the account the right to write both"},
    {"unable to open database file",
     "its folder must exist, and the account must have the right to write there"},
    {"database or disk is full", kFull},
    {"No space left on device", kFull},
    {"permission denied for", kNoRight},
    {"password authentication failed", "check Uid and Pwd in the connection string"},
    {"no password supplied", "the connection string needs Pwd"},
    {"database \"", "create the database on the server first, or check Database"},
    {"Connection refused", kNoServer},
    {"could not translate host name", kNoServer},
    {"timeout expired", kNoServer},
    {"Can't open lib", kNoDriver},
    {"Data source name not found", kNoDriver},
}};

}  // namespace

std::string WithAdvice(std::string text) {
  const auto is_said = [&](const Advice& each) { return text.find(each.phrase) != std::string::npos; };
  const auto* const found = std::ranges::find_if(kAdvice, is_said);
  if (found == kAdvice.end()) return text;
  while (text.ends_with('.')) text.pop_back();
  return text.append("; ").append(found->advice);
}

std::string FileTrouble(std::string_view file) {
  const std::filesystem::path path = ToPath(file);
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found)
    return "there is no such file; \"kxdata7 create\" makes a plant";
  constexpr const char* kAccount =
      "; the account needs the right to read and write the file, and to its folder";
  if (error) return error.message() + (error == std::errc::permission_denied ? kAccount : "");
  if (std::filesystem::is_directory(status)) return "it is a folder; name the plant's file in it";
  if (std::ifstream(path)) return {};
  return std::strerror(errno) + std::string(kAccount);
}

}  // namespace kx::tool
