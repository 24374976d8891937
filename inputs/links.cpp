#include "inputs/links.h"

#include "inputs/adapter_link.h"
#include "inputs/agent_link.h"
#include "inputs/tcp_link.h"

namespace kx::tool {

Links::Links(boost::asio::io_context& io, LinkSettings settings)
    : context_(std::make_shared<LinkContext>(io, std::move(settings))) {}
Links::~Links() { context_->lookups.Stop(); }

std::unique_ptr<SourceLink> Links::OpenAdapter(const std::string& address, LinkOwner& owner) {
  return std::make_unique<TcpLinkHandle>(
      std::make_shared<AdapterLink>(context_, HostAndPort::Parse(address), owner));
}

std::unique_ptr<SourceLink> Links::OpenAgent(const std::string& url, LinkOwner& owner) {
  return std::make_unique<TcpLinkHandle>(std::make_shared<AgentLink>(context_, AgentUrl::Parse(url), owner));
}

}  // namespace kx::tool
