#include "views/terminal.h"

#include <algorithm>
#include <bit>

namespace kx::tool {
namespace {

void AppendEscaped(std::string& text, unsigned byte) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  text += "\\x";
  text += kDigits[byte / 16];
  text += kDigits[byte % 16];
}

}  // namespace

std::string ShownText(std::string_view text) {
  std::string shown;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto at = [&](std::size_t place) {
      return place < text.size() ? static_cast<unsigned char>(text[place]) : 0U;
    };
    const unsigned byte = at(i);
    // The bytes of a character: one, or as many as its first one begins with ones.
    const auto ones = static_cast<std::size_t>(std::countl_one(static_cast<unsigned char>(byte)));
    const std::size_t length = ones == 0 ? 1 : ones;
    bool whole = ones != 1 && ones <= 4;
    for (std::size_t k = 1; whole && k < length; ++k) whole = (at(i + k) & 0xC0) == 0x80;
    if (byte == 0xC2 && whole && at(i + 1) < 0xA0) {
      AppendEscaped(shown, at(++i));
    } else if (!whole || byte < ' ' || byte == 0x7F) {
      AppendEscaped(shown, byte);
    } else {
      shown += text.substr(i, length);
      i += length - 1;
    }
  }
  return shown;
}

TerminalStream::~TerminalStream() {
  Send();
  stream_.rdbuf(target_);
}

bool TerminalStream::Send() {
  std::string shown;
  for (std::string_view left = line_; !left.empty();) {
    const std::size_t end = std::min(left.find_first_of("\n\t"), left.size());
    shown += ShownText(left.substr(0, end));
    shown += left.substr(end, 1);
    left.remove_prefix(std::min(end + 1, left.size()));
  }
  line_.clear();
  const auto size = static_cast<std::streamsize>(shown.size());
  return target_->sputn(shown.data(), size) == size;
}

TerminalStream::int_type TerminalStream::overflow(int_type character) {
  if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
  line_ += traits_type::to_char_type(character);
  return line_.back() != '\n' || Send() ? character : traits_type::eof();
}

int TerminalStream::sync() { return Send() && target_->pubsync() == 0 ? 0 : -1; }

}  // namespace kx::tool
