#pragma once

#include <array>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "inputs/multipart.h"
#include "inputs/tcp_link.h"

namespace kx::tool {

struct AgentUrl {
  HostAndPort at;
  std::string path;  // ends with "/"

  // Reads "http://host:port/path". A ToolError for anything else.
  static AgentUrl Parse(std::string_view url);
};

// Documents from an agent: asks for what its owner wants next, and takes a stream of documents as well as
// single ones.
class AgentLink final : public TcpLink {
 public:
  AgentLink(std::shared_ptr<LinkContext> context, const AgentUrl& url, LinkOwner& owner)
      : TcpLink(std::move(context), url.at, owner), path_(url.path) {}

 private:
  void OnConnected() override;
  void ReadHead();
  void OnHead();
  void ReadBody();
  bool TakePiece(std::string_view piece);
  bool TakeDocument(std::string_view document);
  void AwaitDocument();
  void OnBroken(const Error& error);
  void OnEnd();
  bool IsStreamWanted() const { return owner_.NextRequest().starts_with("sample"); }
  std::string Name() const { return "the agent at " + at_.ToText(); }

  static constexpr std::size_t kPieceSize = 16'384;
  static constexpr std::size_t kLargestHead = 16'384;

  const std::string path_;
  bool asked_for_stream_ = false;  // by the request that is being answered
  boost::beast::http::request<boost::beast::http::empty_body> request_;
  std::optional<boost::beast::http::response_parser<boost::beast::http::buffer_body>> parser_;
  boost::beast::flat_buffer buffer_;
  std::array<char, kPieceSize> piece_{};
  std::optional<MultipartReader> parts_;  // of an answer that is a stream
  std::string document_;                  // the answer, when it is not
  bool had_document_ = false;
  boost::asio::steady_timer document_timer_{context_->io};
};

}  // namespace kx::tool
