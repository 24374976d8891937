#include "plant/trial_folder.h"

#include <random>

#include "plant/platform.h"

namespace kx::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kPrefix = "kxdata7-trial-";
constexpr const char* kLock = "in-use";

// Removes the folders that nobody holds. One without a lock is about to get it.
void RemoveLeftovers(const fs::path& all) {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(all, ignored)) {
    if (!entry.path().filename().string().starts_with(kPrefix) || !fs::exists(entry.path() / kLock, ignored))
      continue;
    try {
      const LockedFile lock(entry.path() / kLock);
      if (lock.held()) fs::remove_all(entry.path(), ignored);
    } catch (const std::exception&) {
      // Another user's.
    }
  }
}

}  // namespace

TrialFolder::TrialFolder(const std::vector<std::string>& databases) {
  const fs::path all = fs::temp_directory_path();
  RemoveLeftovers(all);
  std::random_device random;
  do {  // until another's look for leftovers has not come between
    path_ = all / (kPrefix + std::to_string(random()) + std::to_string(random()));
    MakePrivateFolder(path_);
    in_use_.emplace(path_ / kLock);
  } while (!in_use_->held());
  std::vector<fs::path> files = {path_ / kLock};
  for (const std::string& database : databases) {
    for (const char* suffix : {"", "-wal", "-shm", "-journal"})
      files.push_back(ToPath(File(database) + suffix));
  }
  RemoveOnSignal(path_, files);
}

TrialFolder::~TrialFolder() {
  in_use_.reset();
  std::error_code ignored;
  fs::remove_all(path_, ignored);
  RemoveOnSignal({}, {});
}

std::string TrialFolder::File(const std::string& database) const { return ToText(path_ / database); }

}  // namespace kx::tool
