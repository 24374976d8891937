#include "database/connection_string.h"

#include "database/ascii.h"
#include "database/database_error.h"

namespace kx {
namespace {

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

char ClosingQuote(char opening) { return opening == '{' ? '}' : opening; }

// The value that begins at `at`, which moves behind it: to the ";" or the end.
std::string TakeValue(std::string_view text, std::size_t& at, std::string_view keyword) {
  at = std::min(text.find_first_not_of(" \t\r\n", at), text.size());
  if (at == text.size() || (text[at] != '"' && text[at] != '\'' && text[at] != '{')) {
    const std::size_t end = std::min(text.find(';', at), text.size());
    const std::string_view value = Trim(text.substr(at, end - at));
    at = end;
    return std::string(value);
  }
  const char closing = ClosingQuote(text[at++]);
  std::string value;
  for (;; ++at) {
    if (at >= text.size()) {
      throw DatabaseError("The connection string has an unclosed quote at the value of \"" +
                          std::string(keyword) + "\".");
    }
    if (text[at] == closing) {
      if (at + 1 >= text.size() || text[at + 1] != closing) break;
      ++at;
    }
    value.push_back(text[at]);
  }
  at = std::min(text.find_first_not_of(" \t\r\n", at + 1), text.size());
  if (at < text.size() && text[at] != ';') {
    throw DatabaseError("The connection string has text behind the quoted value of \"" +
                        std::string(keyword) + "\".");
  }
  return value;
}

}  // namespace

ConnectionString ConnectionString::Parse(std::string_view text) {
  // A driver would cut it there.
  if (text.find('\0') != std::string_view::npos) {
    throw DatabaseError("The connection string holds a NUL character.");
  }
  ConnectionString result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::size_t begin = at;
    const std::size_t end = text.find_first_of("=;", at);
    const std::string_view keyword = Trim(text.substr(begin, end - begin));
    if (end == std::string_view::npos || text[end] == ';') {
      if (!keyword.empty()) throw DatabaseError("The connection string has a keyword without a value.");
      at = std::min(end, text.size());
      continue;
    }
    if (keyword.empty()) throw DatabaseError("The connection string has a value without a keyword.");
    at = end + 1;
    std::string value = TakeValue(text, at, keyword);
    result.entries_.push_back(
        {ToLowerAscii(keyword), std::move(value), std::string(text.substr(begin, at - begin))});
  }
  return result;
}

const std::string* ConnectionString::Find(std::string_view keyword) const {
  const auto found = std::find_if(entries_.rbegin(), entries_.rend(),
                                  [&](const Entry& entry) { return entry.keyword == keyword; });
  return found == entries_.rend() ? nullptr : &found->value;
}

std::string ConnectionString::Without(std::string_view keyword) const {
  std::string text;
  for (const Entry& entry : entries_) {
    if (entry.keyword == keyword) continue;
    if (!text.empty()) text += ';';
    text += entry.source;
  }
  return text;
}

}  // namespace kx
