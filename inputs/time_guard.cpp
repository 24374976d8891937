#include "inputs/time_guard.h"

#include <algorithm>

#include "database/text.h"

namespace kx::tool {

std::optional<DateTime> BeenThrough(Plant& plant, std::int32_t machine_id) {
  std::optional<DateTime> latest;
  for (const char* sql : {"select max(d.START_TIME) from T_SFC_MACHINE m inner join T_SFC_MACHINE_DATA d on "
                          "d.MACHINE_DATA_ID = "
                          "m.MACHINE_DATA_ID where m.MACHINE_ID = ?",
                          "select max(START_TIME) from T_SFC_EVENT where MACHINE_ID = ?",
                          "select max(STOP_TIME) from T_SFC_EVENT where MACHINE_ID = ?",
                          "select max(TIME_STAMP) from T_SFC_MDC_LOG where MACHINE_ID = ?"}) {
    const Rows rows = plant.Run(sql, {machine_id});
    if (rows.count() == 0 || rows.at(0, 0).IsNull()) continue;
    const DateTime time = rows.at(0, 0).ToDateTime();
    latest = std::max(latest.value_or(time), time);
  }
  return latest;
}

void TimeGuard::Admit(DateTime time) {
  if (!options_.allow_future && SecondsBetween(now_, time) > options_.future_limit)
    throw ToolError(Concat(time.ToText(), " lies in the future (--allow-future lets it through)"));
  if (!options_.allow_old && been_through_ && time < *been_through_) {
    throw ToolError(Concat(time.ToText(), " is before what the machine has been through, which is ",
                           been_through_->ToText(), " (--allow-old lets it through)"));
  }
  been_through_ = std::max(been_through_.value_or(time), time);
}

DateTime TimeGuard::Admit(const Report& report, std::optional<Moment> last) {
  DateTime time = report.time;
  if (!options_.allow_old && !admitted_ && last && report.moment < *last) {
    throw ToolError(Concat(time.ToText(),
                           " is before what the machine told last"
                           " (--allow-old lets it through)"));
  }
  if (!options_.allow_old && admitted_ && report.moment >= *admitted_) time = std::max(time, *been_through_);
  Admit(time);
  admitted_ = report.moment;
  return time;
}

std::string ContentHash(std::string_view content) {
  // Two FNV-1a hashes that begin differently.
  std::uint64_t first = 14695981039346656037U;
  std::uint64_t second = 1099511628211U;
  for (const char c : content) {
    first = (first ^ static_cast<unsigned char>(c)) * 1099511628211U;
    second = (second ^ static_cast<unsigned char>(c)) * 1099511628211U;
  }
  return Concat(content.size(), "-", first, "-", second);
}

void RequireNewRecording(Plant& plant, const std::string& hash, const TimeGuardOptions& options) {
  if (options.allow_again) return;
  const Rows rows =
      plant.Run("select FILE_NAME, IMPORT_TIME from T_SFC_IMPORT where CONTENT_HASH = ?", {hash});
  if (rows.count() == 0) return;
  throw ToolError(Concat("it was imported on ", rows.at(0, 1).ToTextOr(""), " as ",
                         rows.at(0, 0).ToTextOr(""), " (--allow-again imports it again)"));
}

void NoteRecording(Plant& plant, const std::string& hash, const std::string& file, DateTime now,
                   std::size_t events) {
  plant.Run("delete from T_SFC_IMPORT where CONTENT_HASH = ?", {hash});
  plant.Run(
      "insert into T_SFC_IMPORT (CONTENT_HASH, FILE_NAME, IMPORT_TIME, EVENT_COUNT) values (?, ?, ?, ?)",
      {hash, file, now, static_cast<std::int64_t>(events)});
}

}  // namespace kx::tool
