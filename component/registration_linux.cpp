#include "component/registration.h"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "KXData7.h"
#include "com/error_info.h"

namespace kx {
namespace {

namespace fs = std::filesystem;

fs::path EntryPath() { return kxdata7::ClassDirectories().front() / kxdata7::kClassFileName; }

}  // namespace

void WriteRegistration(const fs::path& library) {
  const fs::path entry = EntryPath();
  fs::create_directories(entry.parent_path());
  const fs::path draft = entry.string() + "." + std::to_string(getpid());
  std::ofstream file(draft);
  file << "ProgID=" << com::kProgId << "\nLibrary=" << library.string() << '\n';
  file.close();
  std::error_code error;
  if (!file) error.assign(errno != 0 ? errno : EIO, std::generic_category());
  if (!error) fs::rename(draft, entry, error);
  if (!error) return;
  std::error_code ignored;
  fs::remove(draft, ignored);
  throw fs::filesystem_error("cannot write the registration", entry, error);
}

void RemoveRegistration() { fs::remove(EntryPath()); }

}  // namespace kx
