#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "plant/client.h"
#include "plant/guard.h"

namespace kx::tool {

// Works a plant off, event by event, alone.
class Processor {
 public:
  // Takes the plant's guard. A GuardError when another process has it.
  explicit Processor(const PlantOptions& options);

  enum class Outcome { kApplied, kNothingWaits, kFailed };
  // Works the first event into the records. When it fails it stays first, and `row` and `error` tell. An
  // event that was applied but could not be taken off the queue is not applied again; only its row is tried
  // again. A GuardError when the plant is this process's no more; another exception when the database is out
  // of reach.
  Outcome Next();

  std::int32_t row() const { return row_; }            // the row that was tried last
  const std::string& error() const { return error_; }  // why it failed
  // What the component said of the event that was applied last; empty but for a commit that is done on this
  // server and perhaps not on its standby.
  std::string Warning() const;
  std::string FailureText();  // with the event that failed
  // Whether the last failure left an event that is in the records and in the queue.
  bool applied_but_queued() const { return applied_row_ == row_; }

  Plant& plant() { return guard_.plant(); }
  kxdata7::Client& component() { return component_; }

 private:
  Outcome TakeOffQueue();
  Outcome Applied();
  Outcome Failed(std::string error);
  // Puts the error, empty for none, where others read it. Returns why that fails.
  std::string KeepError();

  Guard guard_;
  kxdata7::Client component_;
  std::int32_t row_ = -1;
  std::int32_t applied_row_ = -1;  // in the records, but still in the queue
  std::string error_;
  std::string warning_;
  std::optional<std::string> kept_error_;  // where others read it; nothing: not known
};

}  // namespace kx::tool
