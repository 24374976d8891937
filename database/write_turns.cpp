#include "database/write_turns.h"

#include <thread>

namespace kx {
namespace {

using Entered = TurnPlaces::Entered;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// A turn is for all that one writes in so long: the pages that others wrote are read once for all of it.
// Longer for who goes ahead, who has more to do.
constexpr microseconds kTurn{1100};
constexpr microseconds kTurnAhead{2500};

}  // namespace

bool WriteTurns::Await(TurnPlaces::Place place, const Waiting& waiting) noexcept {
  constexpr milliseconds kPiece{5};
  for (; left_ > milliseconds::zero(); left_ -= kPiece) {
    const Entered entered = places_.Enter(place, kPiece);
    if (entered != Entered::kNotYet) return entered == Entered::kYes;
    waiting.pause(milliseconds::zero());
  }
  return false;
}

// Who is next looks without sleeping for as long as most turns last: to be woken takes too long. Between two
// looks is time for the one whose turn it is to write once more.
bool WriteTurns::AwaitTurnBriefly() noexcept {
  constexpr microseconds kBetweenLooks{20};
  const auto begin = steady_clock::now();
  for (auto now = begin; now - begin < kTurnAhead; now = steady_clock::now()) {
    const Entered entered = places_.Enter(TurnPlaces::kTurn);
    if (entered != Entered::kNotYet) return entered == Entered::kYes;
    while (steady_clock::now() - now < kBetweenLooks) std::this_thread::yield();
  }
  return false;
}

void WriteTurns::Take(bool ahead, const Waiting& waiting, milliseconds longest) noexcept {
  left_ = longest;
  if (taken_ || left_ == milliseconds::zero()) return;
  if (steady_clock::now() < turn_end_) {
    taken_ = places_.Enter(TurnPlaces::kTurn) == Entered::kYes;
    if (taken_) return;
  }
  // One waits next to the turn. All but who goes ahead come there through the line, one by one.
  Entered next = places_.Enter(TurnPlaces::kNext);
  if (next == Entered::kNotYet) {
    if (!ahead && !Await(TurnPlaces::kLine, waiting)) return;
    if (Await(TurnPlaces::kNext, waiting)) next = Entered::kYes;
    if (!ahead) places_.Leave(TurnPlaces::kLine);
  }
  if (next != Entered::kYes) return;
  taken_ = AwaitTurnBriefly() || Await(TurnPlaces::kTurn, waiting);
  places_.Leave(TurnPlaces::kNext);
  turn_end_ = steady_clock::now() + (ahead ? kTurnAhead : kTurn);
}

void WriteTurns::Give() noexcept {
  if (taken_) places_.Leave(TurnPlaces::kTurn);
  taken_ = false;
}

}  // namespace kx
