#pragma once

#include <KXData7.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "plant/locked_file.h"
#include "plant/plant.h"

namespace kx::tool {

// Why a plant may not be worked off by this process, now or any more.
struct GuardError : ToolError {
  explicit GuardError(const std::string& text, bool by_this_process = false)
      : ToolError(text), held_by_this_process(by_this_process) {}
  bool held_by_this_process;
};

// Whoever works a plant off, or collects for it, is alone in that while this lives, however the plant is
// named. It goes with the process; on a server it belongs to the link and goes with that. A plant in memory
// needs none.
class Guard {
 public:
  enum class Work { kProcessing, kCollecting };

  // A GuardError that says who holds it, when somebody does.
  explicit Guard(const PlantOptions& options, Work work = Work::kProcessing);

  // A GuardError when the guard is lost, or the file of the plant is not the one that was opened. On a server
  // the guard is lost with the link.
  void RequireHeld() const;

  // The row of the first event that waits, read on the guard's link. A GuardError as above; a DatabaseError
  // when the link, and the guard with it, is lost.
  std::optional<std::int32_t> FirstRow();

  // The link that the guard belongs to.
  Plant& plant() { return plant_; }

 private:
  void LockFile();
  void LockServer(kxdata7::Dialect dialect);
  [[noreturn]] void Refuse(const std::string& holder) const;

  const Work work_;
  Plant plant_;
  std::filesystem::path plant_file_;  // empty on a server and in memory
  std::string plant_identity_;
  std::unique_ptr<LockedFile> file_;
  std::string who_;  // this process
};

}  // namespace kx::tool
