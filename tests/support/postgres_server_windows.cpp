#include <stdexcept>

#include "tests/support/postgres_server.h"

namespace kx::test {

PostgresServer::PostgresServer(bool) { throw std::runtime_error("no test on Windows starts a server"); }

PostgresServer::~PostgresServer() = default;

std::string PostgresServer::CreateDatabase(std::string_view) { return {}; }

std::string PostgresServer::ConnectionString(std::string_view, std::string_view) const { return {}; }

}  // namespace kx::test
