#pragma once

#include <filesystem>

namespace kx {

// Enters the class, served by the file `library`: on Linux in the first of kxdata7::ClassDirectories(), in
// one step (a reader finds the old entry or the new one); on Windows in the registry, for all users or,
// without an administrator's rights, for this one. Failures are std::system_error.
void WriteRegistration(const std::filesystem::path& library);

// Takes the entry out; none there is none to take out. On Windows an administrator's call takes out both.
void RemoveRegistration();

}  // namespace kx
