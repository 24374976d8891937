#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "database/date_time.h"
#include "inputs/observation.h"
#include "plant/plant.h"

namespace kx::tool {

struct TimeGuardOptions {
  bool allow_future = false;
  std::int64_t future_limit = 86'400;  // how far ahead of the plant's clock an event may lie, in seconds
  bool allow_old = false;
  bool allow_again = false;  // a recording that was imported before
};

// Up to when a machine has been through events: the start of its open record, what ran on it, what waits for
// it. Nothing when it has been through none.
std::optional<DateTime> BeenThrough(Plant& plant, std::int32_t machine_id);

// Keeps events out that lie in the future, or before what their machine has been through.
class TimeGuard {
 public:
  TimeGuard(const TimeGuardOptions& options, DateTime now, std::optional<DateTime> been_through)
      : options_(options), now_(now), been_through_(been_through) {}

  // Raises a ToolError for a time that is not let through; the next one must not be earlier.
  void Admit(DateTime time);
  // The same for a report of a machine's stream: one whose moment is not before that of the last one is not
  // old, although the plant's clock may have been put back; its time then is the last one. Returns its time.
  DateTime Admit(const Report& report, std::optional<Moment> last);

 private:
  const TimeGuardOptions options_;
  const DateTime now_;
  std::optional<DateTime> been_through_;
  std::optional<Moment> admitted_;
};

// ---- Recordings that were imported ----

// Tells one content from another.
std::string ContentHash(std::string_view content);
// Raises a ToolError when a recording of this content was imported, unless that is allowed.
void RequireNewRecording(Plant& plant, const std::string& hash, const TimeGuardOptions& options);
void NoteRecording(Plant& plant, const std::string& hash, const std::string& file, DateTime now,
                   std::size_t events);

}  // namespace kx::tool
