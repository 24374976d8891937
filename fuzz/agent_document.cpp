// What an agent may answer: any documents, divided by NUL, one after the other; any text as a stream of
// several parts.

#include <algorithm>

#include "fuzz/demo_plant.h"
#include "inputs/machine_reader.h"
#include "inputs/multipart.h"
#include "plant/plant.h"

namespace {

using namespace kx::tool;
using kx::fuzz::Require;

constexpr const char* kMappings[] = {"", "device=d\nalarm=SYSTEM\nalarm_downtime=01",
                                     "times=plant\nparts=c\nexecution=e",
                                     "times=arrival\npause_ends_cycle=yes"};

void ReadDocuments(const Mapping& mapping, std::string_view text) {
  MachineReader machine(mapping, [](Notices::Kind, const std::string& notice) {
    Require(!notice.empty(), "a notice says something");
  });
  for (;;) {
    const std::string_view document = text.substr(0, text.find('\0'));
    try {
      for (const Report& report : machine.ReadDocument(document, Moment())) {
        Require(!machine.last_moment || report.moment >= *machine.last_moment, "time does not go back");
        Require(!report.observations.empty(), "a report tells something");
        machine.Apply(report);
      }
    } catch (const ToolError& error) {
      Require(error.what()[0] != '\0', "a refusal has a reason");
    }
    const NamedValues state = ParseNamedValues(NamedValuesText(machine.Save()));
    MachineReader again(mapping, [](Notices::Kind, const std::string&) {});
    again.Load(state);
    Require(again.NextRequest() == machine.NextRequest(), "a state that is loaded goes on where it stood");
    if (document.size() == text.size()) return;
    text.remove_prefix(document.size() + 1);
  }
}

// The parts of a body that comes in pieces, and what was wrong with it.
std::vector<std::string> ReadParts(std::string_view body, std::size_t piece) {
  auto reader = MultipartReader::ForType("multipart/x-mixed-replace;boundary=b");
  std::vector<std::string> parts;
  try {
    for (; !body.empty(); body.remove_prefix(std::min(piece, body.size()))) {
      reader->Add(body.substr(0, piece));
      while (auto part = reader->Next()) parts.push_back(*std::move(part));
    }
  } catch (const ToolError& error) {
    parts.emplace_back(error.what());
  }
  return parts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 2, size - 2);
  ReadDocuments(Mapping::Parse(kMappings[data[0] % std::size(kMappings)]), text);
  Require(ReadParts(text, text.size()) == ReadParts(text, data[1] % 16 + 1U),
          "parts come whole however they are cut");
  return 0;
}
