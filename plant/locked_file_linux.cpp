#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "plant/locked_file.h"
#include "plant/plant.h"
#include "plant/platform.h"

namespace kx::tool {
namespace {

std::string IdentityOf(const struct stat& file) {
  return std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino);
}

[[noreturn]] void ThrowUnusable(const std::filesystem::path& path) {
  throw ToolError("cannot lock " + ToText(path) + ": " + std::generic_category().message(errno));
}

}  // namespace

LockedFile::LockedFile(const std::filesystem::path& path) : path_(path) {
  while (!TryLock()) {
  }
}

bool LockedFile::TryLock() {
  // Another account's file is locked as well, but not written.
  for (const int access : {O_RDWR | O_CREAT, O_RDONLY}) {
    if (file_ == -1) file_ = open(path_.c_str(), access | O_CLOEXEC, 0644);
  }
  if (file_ == -1) ThrowUnusable(path_);
  held_ = flock(file_, LOCK_EX | LOCK_NB) == 0;
  if (!held_ && errno != EWOULDBLOCK) {
    const int error = errno;
    close(file_);
    errno = error;
    ThrowUnusable(path_);
  }
  if (!held_ || StillHeld()) return true;
  // Its holder has just taken the file away.
  close(file_);
  file_ = -1;
  return false;
}

LockedFile::~LockedFile() {
  if (StillHeld()) unlink(path_.c_str());
  close(file_);
}

bool LockedFile::StillHeld() const {
  struct stat file {};
  return held_ && fstat(file_, &file) == 0 && IdentityOf(file) == FileIdentity(path_);
}

std::string LockedFile::Read() const {
  std::array<char, 200> text{};
  const auto length = pread(file_, text.data(), text.size(), 0);
  return {text.data(), length < 0 ? 0 : static_cast<std::size_t>(length)};
}

void LockedFile::Write(std::string_view text) {
  if (ftruncate(file_, 0) == 0) [[maybe_unused]]
    const auto written = pwrite(file_, text.data(), text.size(), 0);
}

std::string FileIdentity(const std::filesystem::path& path) {
  struct stat file {};
  return stat(path.c_str(), &file) == 0 ? IdentityOf(file) : std::string();
}

}  // namespace kx::tool
