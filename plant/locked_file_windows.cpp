#include <windows.h>

#include <array>

#include "plant/locked_file.h"
#include "plant/plant.h"
#include "plant/platform.h"

namespace kx::tool {
namespace {

// Far behind the text, which everybody may read.
OVERLAPPED LockedByte() {
  OVERLAPPED place{};
  place.Offset = 0x4000'0000;
  return place;
}

}  // namespace

LockedFile::LockedFile(const std::filesystem::path& path) : path_(path) {
  while (!TryLock()) {
  }
}

bool LockedFile::TryLock() {
  file_ = CreateFileW(path_.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                      nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file_ == INVALID_HANDLE_VALUE) {
    throw ToolError("cannot lock " + ToText(path_) + ": " +
                    std::system_category().message(static_cast<int>(GetLastError())));
  }
  OVERLAPPED place = LockedByte();
  held_ = LockFileEx(file_, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place) != 0;
  return true;
}

LockedFile::~LockedFile() { CloseHandle(file_); }

// An open file cannot be taken away.
bool LockedFile::StillHeld() const { return held_; }

std::string LockedFile::Read() const {
  std::array<char, 200> text{};
  DWORD length = 0;
  OVERLAPPED place{};
  ReadFile(file_, text.data(), text.size(), &length, &place);
  return {text.data(), length};
}

void LockedFile::Write(std::string_view text) {
  DWORD length = 0;
  OVERLAPPED place{};
  SetFilePointer(file_, 0, nullptr, FILE_BEGIN);
  SetEndOfFile(file_);
  WriteFile(file_, text.data(), static_cast<DWORD>(text.size()), &length, &place);
}

std::string FileIdentity(const std::filesystem::path& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored) ? "there" : "";
}

}  // namespace kx::tool
