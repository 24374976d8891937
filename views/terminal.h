#pragma once

#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace kx::tool {

// A text with its control characters, those of C1 included, and what is no UTF-8 as "\x1b": a terminal shows
// it and obeys nothing in it.
std::string ShownText(std::string_view text);

// What is written to `stream` goes on as ShownText, line by line; line ends and tabs stay.
class TerminalStream : public std::streambuf {
 public:
  explicit TerminalStream(std::ostream& stream) : stream_(stream), target_(stream.rdbuf(this)) {}
  ~TerminalStream() override;
  TerminalStream(const TerminalStream&) = delete;
  TerminalStream& operator=(const TerminalStream&) = delete;

 protected:
  int_type overflow(int_type character) override;
  int sync() override;

 private:
  bool Send();

  std::ostream& stream_;
  std::streambuf* target_;
  std::string line_;
};

}  // namespace kx::tool
