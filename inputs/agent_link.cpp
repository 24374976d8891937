#include "inputs/agent_link.h"

#include <algorithm>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>

#include "database/ascii.h"
#include "database/text.h"
#include "inputs/agent_document.h"
#include "plant/plant.h"

namespace kx::tool {

namespace http = boost::beast::http;

AgentUrl AgentUrl::Parse(std::string_view url) {
  constexpr std::string_view kScheme = "http://";
  if (!url.starts_with(kScheme) || url.find_first_of(" \t\r\n?#") != std::string_view::npos)
    throw ToolError(Concat("\"", url, "\" is no address of an agent, such as http://10.0.1.5:5000/Lathe3"));
  url.remove_prefix(kScheme.size());
  const std::size_t slash = std::min(url.find('/'), url.size());
  std::string host(url.substr(0, slash));
  const bool has_port = host.find(':', host.rfind(']') + 1) != std::string::npos;
  if (!has_port) host += ":80";
  std::string path(url.substr(slash));
  if (!path.ends_with('/')) path += '/';
  return {HostAndPort::Parse(host), std::move(path)};
}

void AgentLink::OnConnected() {
  asked_for_stream_ = IsStreamWanted();
  request_ = {http::verb::get, path_ + owner_.NextRequest(), 11};
  request_.set(http::field::host, at_.ToText());
  request_.set(http::field::accept, "multipart/x-mixed-replace, text/xml, application/xml");
  request_.set(http::field::connection, "close");
  NoteBytes();
  SetSilenceLimit(context_->settings.agent_silence);
  AwaitDocument();
  http::async_write(socket_, request_, Bound([this](Error error, std::size_t) {
                      if (error) return Fail(ReadFailure(error));
                      ReadHead();
                    }));
}

void AgentLink::AwaitDocument() {
  document_timer_.expires_after(context_->settings.document_limit);
  document_timer_.async_wait(Bound([this](Error error) {
    if (error) return;
    Fail(Concat(Name(), " sent no whole document for ", DurationText(context_->settings.document_limit)));
  }));
}

void AgentLink::ReadHead() {
  parser_.emplace();
  parser_->header_limit(kLargestHead);
  parser_->body_limit(boost::none);
  buffer_.clear();
  document_.clear();
  had_document_ = false;
  http::async_read_header(socket_, buffer_, *parser_, Bound([this](Error error, std::size_t) {
                            if (error == http::error::end_of_stream)
                              return Fail(ReadFailure(boost::asio::error::eof));
                            if (error) return Fail(Concat(Name(), " sent no answer: ", error.message()));
                            NoteBytes();
                            OnHead();
                          }));
}

void AgentLink::OnHead() {
  const auto& answer = parser_->get();
  const std::string type = ToLowerAscii(std::string_view(answer[http::field::content_type]));
  const bool is_good = answer.result() == http::status::ok;
  parts_ =
      is_good ? MultipartReader::ForType(std::string_view(answer[http::field::content_type])) : std::nullopt;
  const bool is_document = type.find("xml") != std::string::npos || (is_good && type.empty());
  if (!parts_ && !is_document) {
    const std::string_view reason = answer.reason();
    return Fail(is_good ? Concat(Name(), " answered with ", type, " in place of a document")
                        : Concat(Name(), " answered with ", answer.result_int(), " ", reason));
  }
  NoteOpened();
  if (!is_closed()) ReadBody();
}

// A piece at a time, so that a source that sends a lot leaves the others their turns.
void AgentLink::ReadBody() {
  if (parser_->is_done()) return OnEnd();
  auto& body = parser_->get().body();
  body.data = piece_.data();
  body.size = piece_.size();
  http::async_read_some(socket_, buffer_, *parser_, Bound([this](Error error, std::size_t) {
                          NoteBytes();
                          const std::size_t size = piece_.size() - parser_->get().body().size;
                          if (!TakePiece({piece_.data(), size})) return;
                          if (error && error != http::error::need_buffer) return OnBroken(error);
                          ReadBody();
                        }));
}

// False: the connection is of no more use.
bool AgentLink::TakePiece(std::string_view piece) try {
  if (!parts_) {
    document_.append(piece);
    if (document_.size() > kLargestDocument) throw ToolError("its document does not end");
    return true;
  }
  parts_->Add(piece);
  while (const auto part = parts_->Next()) {
    if (!TakeDocument(*part)) return false;
    if (IsStreamWanted()) {
      NoteSuccess();
      continue;
    }
    ReopenLater();
    return false;
  }
  return true;
} catch (const ToolError& error) {
  Fail(Concat(Name(), ": ", error.what()));
  return false;
}

bool AgentLink::TakeDocument(std::string_view document) {
  had_document_ = true;
  AwaitDocument();
  owner_.OnReceived(document, Now());
  return !is_closed();
}

// A stream may end at any time; the next one goes on where it ended.
void AgentLink::OnBroken(const Error& error) {
  if (parts_ && had_document_) return ReopenLater();
  Fail(error == http::error::end_of_stream || error == http::error::partial_message
           ? Concat(Name(), " closed the connection within a document")
           : ReadFailure(error));
}

void AgentLink::OnEnd() {
  if (parts_) return OnBroken(http::error::end_of_stream);
  if (!TakeDocument(document_)) return;
  if (!IsStreamWanted() || parser_->get().result() != http::status::ok) return ReopenLater();
  NoteSuccess();
  // An agent without streams is asked again and again.
  Reopen(asked_for_stream_ ? context_->settings.poll_pause : LinkSettings::Milliseconds(0));
}

}  // namespace kx::tool
