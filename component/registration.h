#pragma once

#include <filesystem>

namespace kx {

// Enters the class, served by the file `library`, in the first of kxdata7::ClassDirectories(), in one step: a
// reader finds the old entry or the new one. Failures are std::filesystem::filesystem_error.
void WriteRegistration(const std::filesystem::path& library);

// Takes the entry out; none there is none to take out.
void RemoveRegistration();

}  // namespace kx
