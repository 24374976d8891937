#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "inputs/agent_reader.h"
#include "inputs/machine_state.h"
#include "inputs/shdr_line.h"

namespace kx::tool {

// How far ahead of its arrival a live report may lie, and how far behind what its machine told last, before
// the machine's clock is not believed.
inline constexpr std::chrono::seconds kClockLimit{60};

// What one machine sends and what becomes of it: its readers, its state, and how far it has come.
class MachineReader {
 public:
  MachineReader(const Mapping& mapping, Notices::Sink sink);
  MachineReader(const MachineReader&) = delete;
  MachineReader& operator=(const MachineReader&) = delete;

  // A connection opens. What is told then, up to an item that is told again, says what holds.
  void Open(Moment arrival);
  // What a line of an adapter tells, or an agent's document that was recorded as one line.
  std::vector<Report> Read(std::string_view line, std::optional<Moment> arrival);
  // What an agent's document tells, and what is to be asked of the agent next.
  std::vector<Report> ReadDocument(std::string_view document, Moment arrival) {
    return agent_reader_.Read(document, arrival, last_moment);
  }
  std::string NextRequest() const { return agent_reader_.NextRequest(); }
  // Gives a live report the time under which it is taken: its own, or that of the arrival where the machine's
  // clock cannot be right, which is said once; never earlier than what the machine told last.
  void AdmitLive(Report& report, Moment arrival);
  // What is taken from where, and every key that came, as texts.
  std::string Taken() const;
  std::string KeysSeen() const;
  std::vector<MachineEvent> Apply(const Report& report);

  NamedValues Save() const;
  void Load(const NamedValues& values);

  const ShdrReader& reader() const { return reader_; }
  const AgentReader& agent_reader() const { return agent_reader_; }
  Notices& notices() { return notices_; }

  std::optional<Moment> last_moment;  // of the last report that was taken
  std::optional<DateTime> last_time;

 private:
  void MarkOpening(std::vector<Report>& reports, std::optional<Moment> arrival);

  Notices notices_;
  ShdrReader reader_;
  AgentReader agent_reader_;
  MachineState state_;
  std::optional<Moment> opened_;  // as long as it is told what holds
  std::set<Item> told_;           // since then
  bool clock_is_wrong_ = false;
};

}  // namespace kx::tool
