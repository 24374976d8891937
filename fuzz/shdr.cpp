// An adapter's lines: any text, read whole, and cut in two at a line with the machine's state saved in
// between.

#include <sstream>
#include <tuple>

#include "fuzz/demo_plant.h"
#include "inputs/machine_reader.h"
#include "inputs/recorded_input.h"
#include "plant/plant.h"

namespace {

using namespace kx::tool;
using kx::fuzz::Require;

constexpr const char* kMappings[] = {
    "times=arrival", "times=arrival\npause_ends_cycle=yes\npart_limit=3\nmaintenance=02\ndevice=d",
    "times=arrival\nalarm=a\nalarm_downtime=01\ngood_parts=g\nbad_parts=b\nexecution=e", "times=plant"};

using Event = std::tuple<kx::DateTime, std::int32_t, std::int32_t, std::string>;

// The events of lines, from `state` on, which is then as they leave it.
std::vector<Event> Read(const Mapping& mapping, const std::string& lines, NamedValues& state) {
  MachineReader machine(mapping, [](Notices::Kind, const std::string& text) {
    Require(!text.empty(), "a notice says something");
  });
  machine.Load(state);
  std::istringstream input(lines);
  std::string line;
  std::vector<Event> events;
  while (ReadBoundedLine(input, line)) {
    try {
      for (const Report& report : machine.Read(line, Moment())) {
        for (std::size_t i = 0; i < report.observations.size(); ++i)
          Require(report.Find(report.observations[i].item) == &report.observations[i].value,
                  "an item stands once");
        for (const MachineEvent& event : machine.Apply(report))
          events.emplace_back(event.time, event.event.type_code, event.event.time_code, event.param);
      }
    } catch (const ToolError& error) {
      Require(error.what()[0] != '\0', "a refusal has a reason");
    }
  }
  // As the plant keeps it.
  state = ParseNamedValues(NamedValuesText(machine.Save()));
  MachineReader again(mapping, [](Notices::Kind, const std::string&) {});
  again.Load(state);
  Require(again.Save() == state, "a state that is loaded is the one that was saved");
  return events;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  if (size < 2) return 0;
  const Mapping mapping = Mapping::Parse(kMappings[data[0] % std::size(kMappings)]);
  const std::string text(reinterpret_cast<const char*>(data) + 2, size - 2);
  NamedValues state;
  const std::vector<Event> whole = Read(mapping, text, state);

  // What one connection knows of itself does not outlive it: a device that was set, an asset of several
  // lines, from where times are counted.
  if (mapping.times != Mapping::Times::kArrival || text.find('*') != text.npos ||
      text.find("--multiline--") != text.npos)
    return 0;
  std::size_t cut = 0;
  for (int lines = data[1] % 8; lines > 0 && cut != text.npos; --lines) cut = text.find('\n', cut + 1);
  if (cut == text.npos || cut == 0) return 0;
  NamedValues cut_state;
  std::vector<Event> events = Read(mapping, text.substr(0, cut), cut_state);
  for (Event& event : Read(mapping, text.substr(cut + 1), cut_state)) events.push_back(std::move(event));
  Require(events == whole, "a cut changes no event");
  Require(cut_state == state, "a cut changes no state");
  return 0;
}
