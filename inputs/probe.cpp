#include "inputs/probe.h"

#include <algorithm>
#include <array>
#include <boost/asio/io_context.hpp>
#include <memory>
#include <ostream>
#include <unordered_map>

#include "database/ascii.h"
#include "database/text.h"
#include "inputs/machine_reader.h"
#include "plant/plant.h"
#include "plant/plant_file.h"

namespace kx::tool {
namespace {

constexpr std::size_t kMostKeys = 500;
constexpr std::size_t kLongestValue = 60;
constexpr std::chrono::milliseconds kBetweenLooks{50};
// Of a check: until all have answered or failed, and what they then have to tell something.
constexpr std::chrono::seconds kLongestCheck{12}, kListening{2};

class ProbedSource : public LinkOwner {
 public:
  ProbedSource(const InputSource& source, Probe& probe)
      : is_agent_(source.kind == "agent"),
        probe_(probe),
        reader_(Mapping::Parse(source.mapping),
                [&probe](Notices::Kind, const std::string& text) { probe.notices.push_back(text); }) {}

  void OnOpened() override {
    probe_.opened = true;
    probe_.lost.clear();
    reader_.Open(Now());
  }
  void OnLost(const std::string& why) override { probe_.lost = why; }
  std::string NextRequest() override { return reader_.NextRequest(); }
  void OnReceived(std::string_view text, Moment arrival) override {
    ++probe_.received;
    try {
      if (is_agent_) {
        for (const AgentObservation& told : AgentDocument::Parse(text).observations) Note(told);
        reader_.ReadDocument(text, arrival);
      } else {
        NoteKeys(text);
        reader_.Read(text, arrival);
      }
    } catch (const ToolError& error) {
      reader_.notices().Say(Notices::Kind::kRefused, error.what(), error.what());
    }
  }
  const std::map<Item, std::string>& taken() const {
    return is_agent_ ? reader_.agent_reader().taken() : reader_.reader().taken();
  }

 private:
  // As most lines are: a value to each key.
  void NoteKeys(std::string_view line) {
    if (line.starts_with('*')) return;
    const std::vector<std::string> fields = SplitFields(PlainText(line));
    for (std::size_t i = 1; i + 1 < fields.size() && !fields[i].starts_with('@'); i += 2)
      Note(fields[i], "", fields[i + 1]);
  }
  void Note(const AgentObservation& told) {
    Note(told.id,
         Concat(told.type, told.sub_type.empty() ? "" : " ", told.sub_type, " of ", told.device,
                told.path.empty() ? "" : ", path ", told.path),
         told.value);
  }
  void Note(const std::string& key, const std::string& about, const std::string& value) {
    if (key.empty()) return;
    const std::string place = about + '\n' + key;
    const auto known = places_.find(place);
    if (known == places_.end() && places_.size() >= kMostKeys) return;
    if (known == places_.end()) probe_.keys.push_back({key, about, {}, 0});
    ProbedKey& probed = probe_.keys[known == places_.end() ? probe_.keys.size() - 1 : known->second];
    places_.emplace(place, probe_.keys.size() - 1);
    probed.value = value.substr(0, kLongestValue);
    ++probed.count;
  }

  const bool is_agent_;
  Probe& probe_;
  MachineReader reader_;
  std::unordered_map<std::string, std::size_t> places_;  // of keys
};

// Whether a key that nobody named could be that of an item, by what builders of machines call it and by what
// it says.
bool CouldBe(Item item, const ProbedKey& probed) {
  const std::string key = ToLowerAscii(probed.key);
  const auto names = [&](std::string_view part) { return key.find(part) != std::string::npos; };
  const bool says = !probed.value.empty() && !EqualsIgnoringCase(probed.value, "UNAVAILABLE");
  constexpr std::array<std::string_view, 5> kModes = {"PRODUCTION", "SETUP", "TEARDOWN", "MAINTENANCE",
                                                      "PROCESS_DEVELOPMENT"};
  switch (item) {
    case Item::kExecution:
    case Item::kStop: return says && IsPlausible(item, probed.value);
    case Item::kMode: return std::ranges::count(kModes, std::string_view(probed.value)) != 0;
    case Item::kProgram: return names("prog") && !names("sub") && !names("status") && !names("comment");
    case Item::kParts:
      return names("part") && (names("count") || names("cnt")) && !names("target") && !names("required") &&
             !names("bad") && !names("scrap") && IsPlausible(item, probed.value);
    default: return false;
  }
}

void Guess(Probe& probe) {
  for (const Item item : kItems) {
    if (probe.taken.contains(item)) continue;
    const auto fits = std::ranges::find_if(
        probe.keys, [&](const ProbedKey& key) { return key.about.empty() && CouldBe(item, key); });
    if (fits != probe.keys.end()) probe.guessed[item] = fits->key;
  }
}

std::string ListOf(const std::vector<ProbedKey>& keys) {
  constexpr std::size_t kMostNamed = 40;
  std::string text;
  for (std::size_t i = 0; i < std::min(keys.size(), kMostNamed); ++i)
    Append(text, i == 0 ? "; it told " : ", ", keys[i].key);
  return keys.size() > kMostNamed ? text + ", …" : text;
}

}  // namespace

std::vector<Probe> ProbeSources(const std::vector<InputSource>& sources, std::chrono::milliseconds time,
                                const std::function<bool(const std::vector<Probe>&)>& enough) {
  std::vector<Probe> probes(sources.size());
  boost::asio::io_context io;
  Links links(io);
  std::vector<std::unique_ptr<ProbedSource>> probed;
  std::vector<std::unique_ptr<SourceLink>> open;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    try {
      probed.push_back(std::make_unique<ProbedSource>(sources[i], probes[i]));
      open.push_back(sources[i].kind == "agent" ? links.OpenAgent(sources[i].address, *probed.back())
                                                : links.OpenAdapter(sources[i].address, *probed.back()));
    } catch (const ToolError& error) {
      if (probed.size() <= i) probed.emplace_back();
      probes[i].lost = error.what();
    }
  }
  for (const auto end = std::chrono::steady_clock::now() + time;
       std::chrono::steady_clock::now() < end && !(enough && enough(probes));) {
    io.run_one_until(std::min(end, std::chrono::steady_clock::now() + kBetweenLooks));
  }
  open.clear();
  for (std::size_t i = 0; i < sources.size(); ++i) {
    if (probed[i] == nullptr) continue;
    if (!probes[i].opened && probes[i].lost.empty()) probes[i].lost = "no answer within the time";
    probes[i].taken = probed[i]->taken();
    Guess(probes[i]);
  }
  return probes;
}

bool CheckSources(Plant& plant, std::ostream& out) {
  std::vector<InputSource> sources = ReadSources(plant);
  RequireLive(sources);
  std::optional<std::chrono::steady_clock::time_point> end;
  const auto enough = [&](const std::vector<Probe>& so_far) {
    const auto now = std::chrono::steady_clock::now();
    const auto is_decided = [](const Probe& probe) { return probe.opened || !probe.lost.empty(); };
    if (!end && std::ranges::all_of(so_far, is_decided)) end = now + kListening;
    return end && now >= *end;
  };
  const std::vector<Probe> probes = ProbeSources(sources, kLongestCheck, enough);
  bool all = true;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    const Probe& probe = probes[i];
    std::string name = Concat("machine ", sources[i].machine_id);
    std::string fault = probe.lost;
    try {
      name = plant.FindMachine(sources[i].machine_id).name;
    } catch (const ToolError& error) {
      fault = error.what();
    }
    const std::string takes = TakenText(probe.taken);
    if (fault.empty() && takes.empty())
      fault = Concat("answers, and tells nothing that its mapping takes", ListOf(probe.keys));
    all &= fault.empty();
    out << (fault.empty() ? "ok      " : "failed  ") << name << ", " << sources[i].address << ": "
        << (fault.empty() ? Concat("answers, takes ", takes) : fault) << '\n';
    for (const std::string& notice : probe.notices) out << "note    " << name << ": " << notice << '\n';
  }
  return all;
}

std::string ProposedMapping(const InputSource& source, const Probe& probe) {
  NamedValues mapping = source.mapping;
  for (const auto* const found : {&probe.taken, &probe.guessed}) {
    for (const auto& [item, key] : *found) {
      if (item != Item::kAvailable) mapping.emplace(ItemName(item), key);
    }
  }
  return MappingText(mapping);
}

}  // namespace kx::tool
