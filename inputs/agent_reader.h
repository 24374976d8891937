#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "inputs/agent_document.h"
#include "inputs/observation.h"

namespace kx::tool {

// The documents of one agent, as one machine hears them: it knows how far they have been read, and asks for
// what comes next. What another device or path tells is left out, and said once.
class AgentReader {
 public:
  AgentReader(const Mapping& mapping, Notices& notices) : mapping_(mapping), notices_(notices) {}

  // What a document tells, in the order in which it happened, none of it before `last`. The agent's present
  // state is an opening; when nothing is known of the machine, it holds from now on. A ToolError for what is
  // no document of an agent, or an error of its own.
  std::vector<Report> Read(std::string_view text, Moment arrival, std::optional<Moment> last);
  // "current", or "sample?…" behind what was read.
  std::string NextRequest() const;

  // How far it has read, and the data items that are taken.
  void Save(NamedValues& values) const;
  void Load(const NamedValues& values);

  const std::map<Item, std::string>& taken() const { return taken_; }
  const std::set<std::string>& seen() const { return seen_; }

 private:
  struct Time {
    Moment moment;
    bool is_plant_time;
  };
  AgentDocument Parse(std::string_view text);
  void AskForAll() {
    instance_.reset();
    held_.clear();
  }
  bool GoesOn(const AgentDocument& document);
  void BeginWith(const AgentDocument& document);
  void JoinCutMoments(AgentDocument& document);
  Time ReadTime(const std::string& text, Moment arrival);
  std::optional<Item> ItemOf(const AgentObservation& told);
  std::optional<Item> FindItem(const AgentObservation& told, bool& is_final);
  bool IsOwnDevice(const AgentObservation& told);

  static constexpr std::size_t kMostItems = 10'000;
  static constexpr std::size_t kMostSeen = 40;
  static constexpr int kMostFailures = 3;  // documents in a row that cannot be read

  const Mapping mapping_;
  Notices& notices_;
  std::optional<std::uint64_t> instance_;  // nothing: the present state is to be asked for
  std::uint64_t next_ = 0;
  std::vector<AgentObservation> held_;      // of the last document, from next_ on
  std::optional<std::uint64_t> lost_from_;  // of a gap, until the present state tells its end
  int failures_ = 0;
  std::map<Item, std::string> taken_;  // the ids of the data items
  std::string own_device_, own_path_;
  std::unordered_map<std::string, std::optional<Item>> items_;  // of data items by their device and id
  std::set<std::string> seen_;
};

}  // namespace kx::tool
