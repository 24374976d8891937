#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "inputs/machine_state.h"
#include "inputs/shdr_line.h"

namespace kx::tool {

// One machine's adapter lines and what becomes of them: its reader, its state, and how far it has come.
class MachineReader {
 public:
  MachineReader(const Mapping& mapping, Notices::Sink sink);
  MachineReader(const MachineReader&) = delete;
  MachineReader& operator=(const MachineReader&) = delete;

  std::vector<Report> Read(std::string_view line, std::optional<Moment> arrival, bool opening = false) {
    return reader_.Read(line, arrival, opening);
  }
  std::vector<MachineEvent> Apply(const Report& report) {
    last_moment = report.moment;
    last_time = report.time;
    return state_.Apply(report, notices_);
  }
  NamedValues Save() const;
  void Load(const NamedValues& values);

  ShdrReader& reader() { return reader_; }
  Notices& notices() { return notices_; }

  std::optional<Moment> last_moment;  // of the last report that was taken
  std::optional<DateTime> last_time;

 private:
  Notices notices_;
  ShdrReader reader_;
  MachineState state_;
};

}  // namespace kx::tool
