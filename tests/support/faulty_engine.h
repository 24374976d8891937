#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "database/database_error.h"
#include "database/engine.h"

namespace kx::test {

enum class EngineCall { kStatement, kBegin, kCommit, kRollback };

// What went through the engines of one opener, and what happens around their calls.
struct EngineWatch {
  int calls = 0;
  int begins = 0;
  int commits_done = 0;
  std::function<void(EngineCall, std::string_view sql)> before;  // may throw in the engine's place
  std::function<void()> after_commit;

  // The n-th call from now on, counted from 1, fails once; `failed_sql` then holds its statement.
  void FailNth(int n, ErrorCategory category);
  // Every call of a kind fails.
  void FailAll(EngineCall kind, ErrorCategory category);
  void Heal() { before = nullptr; }

  std::string failed_sql;
  bool failed = false;
};

inline constexpr const char* kInjected = "injected failure";

// Opens the real engines with `watch`, which outlives them, in front.
EngineOpener WatchedOpener(EngineWatch& watch);

}  // namespace kx::test
