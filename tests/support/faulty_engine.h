#pragma once

#include <chrono>
#include <functional>
#include <span>
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
  // While `before` runs for a statement: its parameters, and the key's name when its new key is asked for.
  std::span<const Value> parameters;
  std::string_view key_column;
  bool deferred = false;  // it may reach the disk with the next commit
  std::function<void()> after_commit;
  // The clock that engines wait by, in the component's way. Without one they really wait.
  std::function<std::chrono::steady_clock::time_point()> clock;
  std::function<void(Engine&)> after_open;  // with the real engine

  // Something happens just before the n-th call from now on, counted from 1; `failed_sql` then holds its
  // statement.
  void AtNth(int n, std::function<void()> action);
  // The n-th call fails once.
  void FailNth(int n, ErrorCategory category);
  // The n-th call finds the link gone; no later one gets through, until a new engine is opened.
  void LoseLinkAtNth(int n);
  // Every call of a kind fails.
  void FailAll(EngineCall kind, ErrorCategory category);
  void Heal() { before = nullptr; }

  std::string failed_sql;
  bool failed = false;
  bool link_lost = false;
};

inline constexpr const char* kInjected = "injected failure";

// Opens the real engines with `watch`, which outlives them, in front.
EngineOpener WatchedOpener(EngineWatch& watch);

}  // namespace kx::test
