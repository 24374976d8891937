// What names in a plant may do to a terminal: nothing.

#include <gtest/gtest.h>

#include <sstream>

#include "views/terminal.h"

namespace {

TEST(TerminalTest, ControlCharactersAreShown) {
  using kx::tool::ShownText;
  EXPECT_EQ(ShownText("Zoë 日本 \U0001F527"), "Zoë 日本 \U0001F527");
  EXPECT_EQ(ShownText("a\x1b[2Jb\x07\x7f\n"), "a\\x1b[2Jb\\x07\\x7f\\x0a");
  EXPECT_EQ(ShownText("\u009b2J\u00a0"), "\\x9b2J\u00a0");  // C1, and what stands next to it
  EXPECT_EQ(ShownText("\x9b\xc3(\xe6\x97"), "\\x9b\\xc3(\\xe6\\x97");
}

TEST(TerminalTest, AStreamKeepsLinesAndLetsNothingElsePass) {
  std::ostringstream screen;
  {
    const kx::tool::TerminalStream terminal(screen);
    screen << "Mill\t1 \x1b"
           << "[31m\n"
           << 'r' << std::flush << "\xc2"
           << "\x9b;";
  }
  screen << '!';
  EXPECT_EQ(screen.str(), "Mill\t1 \\x1b[31m\nr\\x9b;!");
}

}  // namespace
