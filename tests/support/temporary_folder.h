#pragma once

#include <filesystem>
#include <random>
#include <string>

namespace kx {

// A folder of its own under the system's temporary folder, for nobody else to read, removed at the end.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    const auto all = std::filesystem::temp_directory_path();
    std::random_device random;
    do {
      path_ = all / ("kxdata7-" + std::to_string(random()) + std::to_string(random()));
    } while (!std::filesystem::create_directory(path_));
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace kx
