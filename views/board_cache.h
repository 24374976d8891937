#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "views/board.h"

namespace kx::tool {

// The board as it was read last, for every viewer. Each tile has the serial number of the reading that
// changed it, so that a page asks for what is newer than what it has. Used by any thread.
class BoardCache {
 public:
  BoardCache();

  void Set(Board board);
  // The plant could not be read; the board stays as it was known.
  void SetFailure(const std::string& error);

  bool known() const;
  // Since when readings fail, and why; empty: the last one succeeded.
  std::string Failure() const;
  std::string Page() const;
  // What changed after reading `since`, as a JSON document.
  std::string Changes(std::int64_t since) const;
  std::string Json() const;
  std::string Metrics() const;

 private:
  std::string FailureText() const;

  mutable std::mutex mutex_;
  std::optional<Board> board_;
  std::map<std::int32_t, std::pair<std::string, std::int64_t>> tiles_;  // HTML and serial
  std::int64_t serial_;
  std::string error_;
  mutable std::string newest_;  // the document for those who have all but the last reading
  mutable std::int64_t newest_since_ = -1;
};

}  // namespace kx::tool
