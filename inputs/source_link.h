#pragma once

#include <string>
#include <string_view>

#include "inputs/observation.h"

namespace kx::tool {

// What takes what comes through the link to one machine's source. All calls come from the one thread that
// runs the links; none may block on the plant.
class LinkOwner {
 public:
  virtual ~LinkOwner() = default;

  // The source answers; what comes next says what holds, not what changed.
  virtual void OnOpened() = 0;
  // A line of an adapter, without its end, or a document of an agent, whole.
  virtual void OnReceived(std::string_view text, Moment arrival) = 0;
  // The link broke or could not be opened; it is tried again without end.
  virtual void OnLost(const std::string& why) = 0;
  // What an agent is asked for next: "current", or "sample?from=…" behind what was taken. Adapters are not
  // asked.
  virtual std::string NextRequest() { return {}; }
};

// The link to one source: opens, keeps open, opens again. It ends with the object.
class SourceLink {
 public:
  virtual ~SourceLink() = default;
};

}  // namespace kx::tool
