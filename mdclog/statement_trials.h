#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "session/session.h"

namespace kx {

// One kind of the statements that the component writes, to be tried on a database.
struct StatementTrial {
  std::string_view name;
  void (*run)(Session& session);  // raises what is wrong
};

// Kinds are counted from 0; null for a number that is none.
const StatementTrial* FindStatementTrial(std::int32_t index);

// Runs a trial and leaves nothing behind in the database. Returns why it failed, empty when it did not.
std::string RunStatementTrial(Session& session, const StatementTrial& trial);

}  // namespace kx
