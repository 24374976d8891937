// A server of the tests for a program that is none of them: prints its connection string and ends with its
// standard input.
#include <iostream>
#include <limits>

#include "tests/support/postgres_server.h"

int main() {
  const kx::test::PostgresServer server;
  std::cout << server.ConnectionString() << std::endl;
  std::cin.ignore(std::numeric_limits<std::streamsize>::max());
}
