#include "plant/processor.h"

#include "database/text.h"
#include "plant/queue.h"
#include "plant/setting.h"

namespace kx::tool {

Processor::Processor(const PlantOptions& options) : guard_(options), component_(ConnectComponent(options)) {}

Processor::Outcome Processor::Next() {
  const auto first = guard_.FirstRow();
  if (!first) return Outcome::kNothingWaits;
  row_ = *first;
  warning_.clear();
  if (row_ == applied_row_) return TakeOffQueue();
  const kxdata7::Answer answer = component_.Next();
  if (answer) warning_ = answer.error;
  if (answer) return Applied();
  if (!answer.neither()) return Failed(answer.error);
  // The event was applied and its row is still there, or the row was set aside just before.
  if (const auto left = guard_.FirstRow(); left != first) return left ? Next() : Outcome::kNothingWaits;
  applied_row_ = row_;
  return TakeOffQueue();
}

Processor::Outcome Processor::TakeOffQueue() {
  try {
    plant().Run("delete from T_SFC_MDC_LOG where MDC_LOG_ID = ?", {applied_row_});
  } catch (const DatabaseError& error) {
    if (!plant().db.IsOpen()) throw;
    return Failed(error.description());
  }
  applied_row_ = -1;
  return Applied();
}

Processor::Outcome Processor::Applied() {
  error_.clear();
  KeepError();
  return Outcome::kApplied;
}

Processor::Outcome Processor::Failed(std::string error) {
  error_ = std::move(error);
  const std::string obstacle = KeepError();
  if (!obstacle.empty() && !error_.ends_with(obstacle)) error_ += " The database takes nothing: " + obstacle;
  return Outcome::kFailed;
}

std::string Processor::KeepError() {
  if (kept_error_ == error_) return {};
  try {
    if (error_.empty()) {
      DeleteSetting(plant(), setting::kProcessorError);
    } else {
      WriteSetting(plant(), setting::kProcessorError,
                   Concat(row_, "\t", PlantTime(std::time(nullptr)).ToText(), "\t", error_));
    }
    kept_error_ = error_;
  } catch (const DatabaseError& failure) {
    if (!plant().db.IsOpen()) throw;
    if (!HasNoSettings(failure)) return failure.description();
    kept_error_ = error_;
  }
  return {};
}

std::string Processor::Warning() const {
  return warning_.empty() ? "" : Concat("row ", row_, " was applied: ", warning_);
}

std::string Processor::FailureText() {
  std::string name = Concat("row ", row_);
  try {
    if (const auto event = ReadQueuedEvent(plant(), row_)) name = event->Description();
  } catch (const DatabaseError&) {
    // What the component reported says more than a failure to read the row.
  }
  if (row_ == applied_row_) {
    return Concat(name, " was applied, but its row could not be deleted (", error_,
                  "); the next run applies it again");
  }
  return Concat(name, ": ", error_);
}

}  // namespace kx::tool
