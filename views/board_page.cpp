#include <algorithm>

#include "database/text.h"
#include "views/board.h"
#include "views/drawing.h"
#include "views/words.h"

namespace kx::tool {
namespace {

// The signs of the states, used by reference.
constexpr std::string_view kSigns = R"(<svg width="0" height="0" aria-hidden="true" class="defs"><defs>
<symbol id="i-cycle" viewBox="0 0 24 24"><circle cx="12" cy="12" r="11" fill="currentColor"/><polygon points="9,6.5 18.5,12 9,17.5" class="cut"/></symbol>
<symbol id="i-setup" viewBox="0 0 24 24"><rect x="2" y="2" width="20" height="20" rx="2" fill="currentColor"/><polygon points="12,5 18,12 14,12 14,19 10,19 10,12 6,12" class="cut"/></symbol>
<symbol id="i-teardown" viewBox="0 0 24 24"><rect x="3" y="3" width="18" height="18" rx="2" fill="none" stroke="currentColor" stroke-width="2"/><polygon points="12,19 18,12 14,12 14,5 10,5 10,12 6,12" fill="currentColor"/></symbol>
<symbol id="i-down" viewBox="0 0 24 24"><polygon points="12,1 23.5,22 0.5,22" fill="currentColor"/><rect x="10.7" y="8" width="2.6" height="7.5" class="cut"/><rect x="10.7" y="17" width="2.6" height="2.6" class="cut"/></symbol>
<symbol id="i-idle" viewBox="0 0 24 24"><circle cx="12" cy="12" r="10" fill="none" stroke="currentColor" stroke-width="2"/><rect x="8" y="7.5" width="2.6" height="9" fill="currentColor"/><rect x="13.4" y="7.5" width="2.6" height="9" fill="currentColor"/></symbol>
<symbol id="i-nodata" viewBox="0 0 24 24"><circle cx="12" cy="12" r="10" fill="none" stroke="currentColor" stroke-width="2" stroke-dasharray="3 3.3"/><line x1="7" y1="12" x2="17" y2="12" stroke="currentColor" stroke-width="2"/></symbol>
</defs></svg>
)";

std::string Sign(State state) {
  return Concat(R"(<svg class="icon" aria-hidden="true"><use href="#i-)", StateClass(state), "\"/></svg>");
}

bool Stands(const Board& board) { return !board.queue.error.empty(); }

// Until when something is known.
DateTime Known(const Board& board) {
  return Stands(board) ? std::min(board.now, board.worked_in.value_or(board.now)) : board.now;
}

// "1 h 02 min" with its units in small.
std::string ElapsedHtml(std::int64_t seconds) {
  if (seconds < 60) return Concat(std::max<std::int64_t>(0, seconds), "<u class=\"min\">s</u>");
  const std::int64_t minutes = seconds / 60;
  if (minutes < 60) return Concat(minutes, "<u class=\"min\">min</u>");
  if (minutes < std::int64_t{48} * 60)
    return Concat(minutes / 60, "<u class=\"h\">h</u>", minutes % 60 < 10 ? "0" : "", minutes % 60,
                  "<u class=\"min\">min</u>");
  return Concat(minutes / (std::int64_t{24} * 60), "<u class=\"min\">days</u>");
}

std::string SinceText(DateTime since, DateTime now) {
  const std::int64_t days = DaysBetween(since, now);
  if (days == 0) return ClockText(since);
  return days < 7 ? Concat(DayText(since).substr(0, 3), " ", ClockText(since)) : IsoDay(since);
}

std::string Strip(const Board& board, const Tile& tile) {
  const Axis axis(board.range.from, board.range.to);
  std::string html =
      Concat("<svg class=\"line\" role=\"img\" aria-label=\"States since ", ClockText(board.range.from),
             "\">", Band(tile.timeline, axis, board.range.from, 0.8, true, false));
  const std::int64_t step = axis.seconds() > 43'200 ? 10'800 : 3'600;
  for (std::int64_t at = 0; at <= axis.seconds(); at += step) {
    const std::string x = Percent(axis.At(board.range.from.AddSeconds(at)));
    html += Line("tick", x, x, "100%", "112%");
  }
  const std::string now = Percent(std::clamp(axis.At(board.now), 0.0, 100.0));
  return Concat(html, Line("now", now, now, "0", "112%"), "</svg>");
}

}  // namespace

std::string_view BoardClass(const Board& board) {
  constexpr std::array<std::pair<std::size_t, std::string_view>, 6> kClasses = {
      {{1, "n1"}, {4, "n4"}, {6, "n6"}, {12, "n12"}, {20, "n20"}, {40, "n40"}}};
  for (const auto& [most, name] : kClasses) {
    if (board.tiles.size() <= most) return name;
  }
  return "n40 many";
}

std::string BoardHead(const Board& board) {
  std::map<State, int> counts;
  for (const Tile& tile : board.tiles) ++counts[tile.state];
  std::string html = Concat("<div><h1>", Escaped(board.plant_name), "</h1><ul class=\"sum\">");
  for (const State state : kStates) {
    const int count = counts[state];
    if (count == 0 && state != State::kDown) continue;
    std::string word(StateWord(state));
    word[0] = static_cast<char>(word[0] + ('a' - 'A'));
    Append(html, "<li class=\"s-", StateClass(state), count > 0 ? " on" : "", "\">", Sign(state), count, " ",
           word, "</li>");
  }
  const Range& range = board.range;
  const Axis axis(range.from, range.to);
  const double done = std::clamp(axis.At(board.now), 0.0, 100.0);
  Append(html, "</ul></div>\n<div class=\"shift\"><p><b>",
         range.shift_id ? Escaped(range.shift_name) + " shift" : "No shift", "</b><span>",
         DurationText(CutToMinute(SecondsBetween(board.now, range.to))),
         " to go</span></p><svg role=\"img\" aria-label=\"", Fixed(done, 0), " % of the time\">",
         Rect("p-all", 0, 100, "height=\"100%\""), Rect("p-done", 0, done, "height=\"100%\""),
         "</svg><p><span>", ClockText(range.from), "</span><span>", ClockText(range.to),
         "</span></p></div>\n<time class=\"clock\" id=\"clock\">", ClockText(board.now), "</time>");
  return html;
}

std::string BoardAlert(const Board& board) {
  const QueueState& queue = board.queue;
  if (!Stands(board) || !queue.head) return "";
  std::string machine = Concat("machine ", queue.head->machine_id);
  for (const Tile& tile : board.tiles) {
    if (tile.id == queue.head->machine_id) machine = tile.name;
  }
  std::string name = queue.head->Name();
  if (!name.empty() && name[0] >= 'a' && name[0] <= 'z') name[0] = static_cast<char>(name[0] - ('a' - 'A'));
  const auto since = DateTime::Parse(queue.head->time);
  return Concat(
      "<b>The queue stands", since ? Concat(" since ", SinceText(*since, board.now)) : "", ".</b> ",
      Escaped(name), " on ", Escaped(machine), " cannot be worked in: “", Escaped(queue.error), "” ",
      Escaped(queue.missing), "<span>", Counted(queue.waiting, "event"),
      queue.waiting == 1 ? " waits" : " wait",
      queue.oldest
          ? Concat(", the oldest ", DurationText(CutToMinute(SecondsBetween(*queue.oldest, board.now))))
          : "",
      board.worked_in ? Concat(" · everything below is as of ", board.worked_in->Format("hh:mm:ss")) : "",
      " · <b>kxdata7 queue PLANT --head</b> shows the event, <b>set-aside</b> takes it out of the "
      "way</span>");
}

std::string BoardStatus(const Board& board) {
  const QueueState& queue = board.queue;
  std::string text = queue.waiting == 0   ? "No event waits"
                     : queue.waiting == 1 ? "1 event waits"
                                          : Concat(queue.waiting, " events wait");
  if (queue.oldest)
    Append(text, queue.waiting == 1 ? ", " : ", the oldest ",
           DurationText(CutToMinute(std::max<std::int64_t>(0, SecondsBetween(*queue.oldest, board.now)))));
  if (board.worked_in)
    Append(text, " · last event worked in ",
           DaysBetween(*board.worked_in, board.now) == 0 ? "" : IsoDay(*board.worked_in) + " ",
           board.worked_in->Format("hh:mm:ss"));
  return text;
}

std::string TileHtml(const Board& board, const Tile& tile) {
  const bool down = tile.state == State::kDown;
  const std::string name = Escaped(tile.name);
  std::string html = Concat(
      "<article class=\"tile s-", StateClass(tile.state), down ? tile.by_operator ? " user" : " machine" : "",
      "\" id=\"m", tile.id, "\" aria-label=\"", name, ": ", StateWord(tile.state),
      "\"><div class=\"in\">\n<div class=\"band\">", Sign(tile.state), "<div class=\"two\"><h2>", name,
      "</h2><p class=\"word\">", StateWord(tile.state), "</p></div>\n<p class=\"time\">");
  if (tile.since)
    Append(html, ElapsedHtml(SecondsBetween(*tile.since, Known(board))), "<i>since ",
           SinceText(*tile.since, board.now), "</i>");
  html += "</p></div>\n<div class=\"body\"><p class=\"job\">";
  if (down) Append(html, "<span class=\"reason\">", Escaped(tile.reason.Text()), "</span>");
  if (tile.state == State::kNoData) {
    html += "<span class=\"none\">nothing known</span>";
  } else {
    const std::string first =
        Concat(tile.job, !tile.job.empty() && !tile.part.empty() ? " · " : "", tile.part);
    Append(html, first.empty() ? "<span class=\"first none\">no job" : "<span class=\"first\">",
           Escaped(first), "</span><span class=\"second\">",
           tile.user.empty() ? "nobody logged on" : Escaped(tile.user), "</span>");
  }
  html += "</p><div class=\"counts\">";
  for (const auto& [word, count] :
       {std::pair("good", tile.shift ? std::optional(tile.shift->good) : std::nullopt),
        std::pair("scrap", tile.shift ? std::optional(tile.shift->scrapped) : std::nullopt)})
    Append(html, count.value_or(0) == 0 ? "<div class=\"zero\"><b>" : "<div><b>",
           count ? std::to_string(*count) : "–", "</b><span>", word, "</span></div>");
  return Concat(html, "</div></div>\n<div class=\"foot\">", Strip(board, tile),
                "\n<div class=\"axis\"><span>", ClockText(board.range.from), "</span><span>",
                ClockText(board.range.to), "</span></div></div></div></article>");
}

std::string BoardPage(const Board& board, std::int64_t serial) {
  const std::string alert = BoardAlert(board);
  std::string html = Concat(
      "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
      "content=\"width=device-width,initial-scale=1\">"
      "<meta name=\"color-scheme\" content=\"light dark\">\n<title>",
      Escaped(board.plant_name),
      " – board</title><link rel=\"stylesheet\" href=\"/board.css\"><link rel=\"icon\" "
      "href=\"/icon.svg\"><script src=\"/board.js\" defer></script></head>\n<body class=\"",
      BoardClass(board), Stands(board) ? " stale" : "", "\" data-serial=\"", serial, "\" data-clock=\"",
      SecondsBetween(board.now.Date(), board.now), "\">", kSigns, "<header id=\"head\">", BoardHead(board),
      "</header>\n<p class=\"alert\" id=\"away\" role=\"alert\" hidden></p><p class=\"alert\" id=\"alert\" "
      "role=\"alert\"",
      alert.empty() ? " hidden" : "", ">", alert, "</p>\n<div class=\"status\"><span id=\"status\">",
      BoardStatus(board), "</span><nav aria-label=\"Reports\">");
  for (const auto& [name, text] : {std::pair("shift", "This shift"), std::pair("last", "Last shift"),
                                   std::pair("today", "Today"), std::pair("week", "This week")})
    Append(html, "<a href=\"/report?range=", name, "\">", text, "</a>");
  html += "</nav><span id=\"updated\">Page updated now</span></div>\n<main id=\"tiles\">";
  for (const Tile& tile : board.tiles) html += TileHtml(board, tile) + "\n";
  if (board.tiles.empty()) html += "<p>The plant has no machines yet.</p>";
  return html + "</main></body></html>\n";
}

}  // namespace kx::tool
