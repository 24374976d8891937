// A server of the tests for a program that is none of them: prints its connection string and ends with its
// standard input. The lines "kill" and "start" there end all its processes at once, and start it again on the
// same port; each is answered by a line when it is done.
#include <iostream>
#include <string>

#include "tests/support/postgres_server.h"

int main() {
  kx::test::PostgresServer server;
  std::cout << server.ConnectionString() << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    if (line == "kill") server.Kill();
    if (line == "start") server.Start();
    std::cout << "done" << std::endl;
  }
}
