#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "plant/locked_file.h"

namespace kx::tool {

// A folder under the system's temporary folder for databases of these names, readable by nobody else. It goes
// at the end, on Linux also when TERM, INT or HUP ends the program meanwhile; what a program that was killed
// left there goes when the next one makes a folder. One at a time.
class TrialFolder {
 public:
  explicit TrialFolder(const std::vector<std::string>& databases);
  ~TrialFolder();
  TrialFolder(const TrialFolder&) = delete;
  TrialFolder& operator=(const TrialFolder&) = delete;

  std::string File(const std::string& database) const;

 private:
  std::filesystem::path path_;
  std::optional<LockedFile> in_use_;
};

}  // namespace kx::tool
