#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "inputs/source_link.h"

namespace boost::asio {
class io_context;
}

namespace kx::tool {

// The limits of links, as plants need them; tests have shorter ones.
struct LinkSettings {
  using Milliseconds = std::chrono::milliseconds;

  // How long a link rests before it is tried again: doubled each time it fails, up to twice as long by
  // chance.
  Milliseconds first_pause{500}, longest_pause{10'000};
  Milliseconds connect_limit{10'000};  // for looking up a name, and for connecting
  Milliseconds silence{60'000};        // of an adapter that knows no heartbeat
  Milliseconds shortest_ping{100};     // whatever an adapter asks for
  Milliseconds shortest_silence{1'000};
  Milliseconds agent_silence{20'000};    // two of the heartbeats that are asked for
  Milliseconds document_limit{120'000};  // until the next document of an agent is whole
  Milliseconds poll_pause{1'000};        // between the documents of an agent that has no streams
  // The addresses of a host, or an exception; the system's answer when empty. Runs on threads of its own.
  std::function<std::vector<std::string>(const std::string& host)> look_up;
};

struct LinkContext;

// Opens links to sources. They all live on the thread that runs `io`, and end before this object.
class Links {
 public:
  explicit Links(boost::asio::io_context& io, LinkSettings settings = {});
  ~Links();
  Links(const Links&) = delete;
  Links& operator=(const Links&) = delete;

  // The link to an adapter's host:port. A ToolError for what is none. It is tried as soon as `io` runs.
  std::unique_ptr<SourceLink> OpenAdapter(const std::string& address, LinkOwner& owner);
  // The same for an agent's http://host:port/path.
  std::unique_ptr<SourceLink> OpenAgent(const std::string& url, LinkOwner& owner);

 private:
  std::shared_ptr<LinkContext> context_;
};

}  // namespace kx::tool
