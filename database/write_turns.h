#pragma once

#include <chrono>
#include <string>

#include "database/engine.h"
#include "database/turn_places.h"

namespace kx {

// Whose turn it is to write an SQLite file, among all connections and processes: SQLite keeps no queue for
// its write lock, so that of many who wait one may wait for long. It is a courtesy and no lock: who gets no
// turn in time, or where there are none, goes on without, and SQLite's lock decides. Taken and given by the
// same thread.
class WriteTurns {
 public:
  // Of the file `path`; where that is no file, every turn comes at once.
  explicit WriteTurns(std::string path) : places_(std::move(path)) {}
  ~WriteTurns() { Give(); }
  WriteTurns(const WriteTurns&) = delete;
  WriteTurns& operator=(const WriteTurns&) = delete;

  // Waits for `longest` at most. Who goes ahead lets two or three others write first, however
  // many wait; there is to be one such, the processor.
  void Take(bool ahead, const Waiting& waiting, std::chrono::milliseconds longest) noexcept;
  void Give() noexcept;  // nothing when there is none
  bool taken() const { return taken_; }

 private:
  bool Await(TurnPlaces::Place place, const Waiting& waiting) noexcept;
  bool AwaitTurnBriefly() noexcept;

  TurnPlaces places_;
  bool taken_ = false;
  std::chrono::milliseconds left_{};  // to wait for this turn
  std::chrono::steady_clock::time_point
      turn_end_{};  // until when the next turn comes without waiting in line
};

}  // namespace kx
