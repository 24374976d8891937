#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "plant/queue.h"
#include "views/timeline.h"

namespace kx::tool {

// What a machine does now, and what it made in this shift.
struct Tile {
  std::int32_t id = 0;
  std::string name;
  State state = State::kNoData;
  bool by_operator = false;       // of a downtime
  std::optional<DateTime> since;  // how long it has been in that state
  Reason reason;                  // of a downtime
  std::string job, part, user;    // empty: none
  std::optional<Sums> shift;      // nothing where it has no record in this shift
  Timeline timeline;
};

struct QueueState {
  std::int64_t waiting = 0;
  std::optional<QueuedEvent> head;
  std::optional<DateTime> oldest;
  // Why the head cannot be worked in, from whoever tried it; empty: nobody knows of an error.
  std::string error;
  std::string missing;  // what the plant lacks for it
};

struct Board {
  std::string plant_name;
  DateTime now;
  Range range;                        // this shift, or the day when none is in force
  std::optional<DateTime> worked_in;  // the time of the last event that was worked in
  QueueState queue;
  std::vector<Tile> tiles;  // by machine
};
struct BoardScope {
  std::string plant_name;
  std::optional<std::int32_t> dept_id;  // of the machines' current records; nothing: all machines
};
// `tried` gives the error of a trial for a row of the queue, empty when none was made.
Board ReadBoard(Plant& plant, const BoardScope& shown, DateTime now,
                const std::function<std::string(std::int32_t)>& tried);

// ---- As HTML, for the page; `stale`: what is known is as of the last event that was worked in ----

std::string BoardHead(const Board& board);
std::string BoardAlert(const Board& board);  // empty while the queue moves
std::string BoardStatus(const Board& board);
std::string TileHtml(const Board& board, const Tile& tile);
std::string_view BoardClass(const Board& board);  // by the number of tiles
// The page with what its script needs: `serial` is that of the tiles.
std::string BoardPage(const Board& board, std::int64_t serial);

// ---- As documents ----

std::string BoardJson(const Board& board);
// Prometheus' text format.
std::string BoardMetrics(const Board& board);

}  // namespace kx::tool
