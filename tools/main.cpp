#include <algorithm>
#include <exception>
#include <iostream>
#include <optional>

#include "plant/platform.h"
#include "tools/command_line.h"
#include "views/terminal.h"

namespace {

int Run(std::vector<std::string> arguments) {
  kx::tool::CommandLine line;
  try {
    std::ranges::reverse(arguments);  // as the parser takes them
    line.app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    return line.app.exit(error) == 0 ? 0 : 2;
  }
  const int status = line.run();
  if (!std::cout.flush()) throw kx::tool::ToolError("the output could not be written");
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  const kx::tool::TerminalStream error_output(std::cerr);
  std::optional<kx::tool::TerminalStream> output;
  if (kx::tool::IsOutputATerminal()) output.emplace(std::cout);
  try {
    return Run(kx::tool::Arguments(argc, argv));
  } catch (const std::exception& error) {
    std::string text = error.what();
    std::ranges::replace_if(
        text, [](char c) { return c == '\n' || c == '\r'; }, ' ');
    std::cout.flush();
    std::cerr << "kxdata7: " << text << '\n';
    return 1;
  }
}
