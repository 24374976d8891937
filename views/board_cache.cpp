#include "views/board_cache.h"

#include "database/text.h"
#include "views/words.h"

namespace kx::tool {

// Serials of another run of the server are lower.
BoardCache::BoardCache()
    : serial_(std::chrono::duration_cast<std::chrono::milliseconds>(
                  std::chrono::system_clock::now().time_since_epoch())
                  .count()) {}

void BoardCache::Set(Board board) {
  const std::lock_guard lock(mutex_);
  ++serial_;
  for (const Tile& tile : board.tiles) {
    auto& [html, changed] = tiles_[tile.id];
    std::string now = TileHtml(board, tile);
    if (now == html) continue;
    html = std::move(now);
    changed = serial_;
  }
  std::erase_if(tiles_, [&](const auto& known) {
    return std::ranges::find(board.tiles, known.first, &Tile::id) == board.tiles.end();
  });
  board_ = std::move(board);
  error_.clear();
  newest_since_ = -1;
}

void BoardCache::SetFailure(const std::string& error) {
  const std::lock_guard lock(mutex_);
  error_ = error;
  newest_since_ = -1;
}

bool BoardCache::known() const {
  const std::lock_guard lock(mutex_);
  return board_.has_value();
}

std::string BoardCache::FailureText() const {
  if (error_.empty()) return "";
  return Concat("The plant’s database does not answer",
                board_ ? Concat(" since ", ClockText(board_->now)) : std::string(), ": ", error_, ".");
}

std::string BoardCache::Failure() const {
  const std::lock_guard lock(mutex_);
  return FailureText();
}

std::string BoardCache::Page() const {
  const std::lock_guard lock(mutex_);
  return board_ ? BoardPage(*board_, serial_) : "";
}

std::string BoardCache::Changes(std::int64_t since) const {
  const std::lock_guard lock(mutex_);
  if (!board_) return "";
  if (since == newest_since_) return newest_;
  std::string json =
      Concat("{\"serial\": ", serial_, ", \"clock\": ", SecondsBetween(board_->now.Date(), board_->now),
             ", \"machines\": ", board_->tiles.size(), ", \"head\": ", JsonText(BoardHead(*board_)),
             ", \"alert\": ", JsonText(BoardAlert(*board_)), ", \"status\": ", JsonText(BoardStatus(*board_)),
             ", \"database\": ", JsonText(FailureText()), ",\n\"tiles\": {");
  const char* comma = "";
  for (const auto& [id, tile] : tiles_) {
    if (tile.second <= since && since <= serial_) continue;
    Append(json, comma, "\"m", id, "\": ", JsonText(tile.first));
    comma = ",\n";
  }
  json += "}}\n";
  newest_since_ = since;
  return newest_ = json;
}

std::string BoardCache::Json() const {
  const std::lock_guard lock(mutex_);
  return board_ ? BoardJson(*board_) : "";
}

std::string BoardCache::Metrics() const {
  const std::lock_guard lock(mutex_);
  std::string text =
      Concat("# HELP kxdata7_up 1 when the plant's database answers.\n# TYPE kxdata7_up gauge\nkxdata7_up ",
             error_.empty() && board_ ? 1 : 0, "\n");
  return board_ && error_.empty() ? text + BoardMetrics(*board_) : text;
}

}  // namespace kx::tool
