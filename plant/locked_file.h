#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kx::tool {

// A file that one process at a time holds locked. The lock goes with the process, however that ends.
class LockedFile {
 public:
  // Makes the file when it is not there. A ToolError when it cannot be used.
  explicit LockedFile(const std::filesystem::path& path);
  // Lets it go; on Linux the file goes, too.
  ~LockedFile();
  LockedFile(const LockedFile&) = delete;
  LockedFile& operator=(const LockedFile&) = delete;

  // False: another process holds it, or this one by another object.
  bool held() const { return held_; }
  // False as well when the file was taken away or replaced, so that another process may hold one in its
  // place.
  bool StillHeld() const;
  // What the holder wrote into it, as whoever holds it or not reads it.
  std::string Read() const;
  void Write(std::string_view text);

 private:
  // Opens and locks the file. False: it was taken away meanwhile.
  bool TryLock();

  std::filesystem::path path_;
#ifdef _WIN32
  void* file_ = nullptr;
#else
  int file_ = -1;
#endif
  bool held_ = false;
};

// Tells a file from any other that stands at its path later, as long as somebody has it open; empty when
// there is none.
std::string FileIdentity(const std::filesystem::path& path);

}  // namespace kx::tool
