#include "inputs/multipart.h"

#include <algorithm>
#include <charconv>

#include "database/ascii.h"
#include "inputs/agent_document.h"
#include "plant/plant.h"

namespace kx::tool {
namespace {

constexpr std::size_t kLargestHead = 8'192;

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

}  // namespace

std::optional<MultipartReader> MultipartReader::ForType(std::string_view content_type) {
  const std::string lower = ToLowerAscii(content_type);
  if (!lower.starts_with("multipart/")) return std::nullopt;
  constexpr std::string_view kBoundary = "boundary=";
  const std::size_t at = lower.find(kBoundary);
  if (at == std::string::npos) return std::nullopt;
  std::string_view boundary = content_type.substr(at + kBoundary.size());
  const bool is_quoted = boundary.starts_with('"');
  if (is_quoted) boundary.remove_prefix(1);
  boundary = Trim(boundary.substr(0, boundary.find(is_quoted ? '"' : ';')));
  if (boundary.empty()) return std::nullopt;
  return MultipartReader("--" + std::string(boundary));
}

std::optional<std::string> MultipartReader::Next() {
  if (!in_part_ && !ReadHead()) return std::nullopt;
  std::size_t size = length_.value_or(0);
  if (!length_) {
    const std::size_t end = text_.find(delimiter_, searched_);
    if (end == std::string::npos) {
      searched_ = text_.size() - std::min(text_.size(), delimiter_.size());
      if (text_.size() > kLargestDocument) throw ToolError("a document of the stream does not end");
      return std::nullopt;
    }
    size = end;
  } else if (text_.size() < size) {
    return std::nullopt;
  }
  std::string part = text_.substr(0, size);
  Drop(size);
  in_part_ = false;
  return part;
}

void MultipartReader::Drop(std::size_t size) {
  text_.erase(0, size);
  searched_ = 0;
}

// Whether the boundary and the head of a part are there; they are taken.
bool MultipartReader::ReadHead() {
  const std::size_t start = text_.find(delimiter_);
  std::size_t at = start == std::string::npos ? start : text_.find('\n', start);
  length_.reset();
  while (at != std::string::npos) {
    const std::size_t end = text_.find('\n', ++at);
    if (end == std::string::npos) break;
    const std::string_view line = Trim(std::string_view(text_).substr(at, end - at));
    at = end;
    if (line.empty()) {
      Drop(end + 1);
      in_part_ = true;
      return true;
    }
    constexpr std::string_view kLength = "content-length:";
    if (!ToLowerAscii(line).starts_with(kLength)) continue;
    const std::string_view value = Trim(line.substr(kLength.size()));
    std::size_t length = 0;
    const auto [last, error] = std::from_chars(value.data(), value.data() + value.size(), length);
    if (error != std::errc() || last != value.data() + value.size() || length > kLargestDocument)
      throw ToolError("a document of the stream is too large");
    length_ = length;
  }
  if (text_.size() > kLargestHead) throw ToolError("the stream has no documents");
  return false;
}

}  // namespace kx::tool
