#include "views/drawing.h"

#include <algorithm>
#include <array>

#include "database/text.h"
#include "views/words.h"

namespace kx::tool {
namespace {

constexpr int kColumns = 500;

std::string TitleElement(std::string_view title) {
  return title.empty() ? "" : Concat("<title>", Escaped(title), "</title>");
}

// The segments as columns of equal width, neighbours of one state joined.
std::vector<Segment> InColumns(const Timeline& timeline, const Axis& axis, DateTime from) {
  std::vector<std::array<std::int64_t, kStates.size()>> seconds(kColumns);
  const std::int64_t width = std::max<std::int64_t>(1, axis.seconds() / kColumns);
  for (const Segment& segment : timeline.segments) {
    const std::int64_t start = SecondsBetween(from, segment.start), stop = SecondsBetween(from, segment.stop);
    for (std::int64_t column = start / width; column < kColumns && column * width < stop; ++column) {
      seconds[static_cast<std::size_t>(column)][static_cast<std::size_t>(segment.state)] +=
          std::min(stop, (column + 1) * width) - std::max(start, column * width);
    }
  }
  std::vector<Segment> columns;
  for (std::size_t i = 0; i < seconds.size(); ++i) {
    const auto most = std::ranges::max_element(seconds[i]);
    if (*most == 0) continue;
    const bool down = seconds[i][static_cast<std::size_t>(State::kDown)] > 0;
    const State state = down ? State::kDown : static_cast<State>(most - seconds[i].begin());
    const DateTime start = from.AddSeconds(static_cast<std::int64_t>(i) * width);
    if (!columns.empty() && columns.back().state == state && columns.back().stop == start) {
      columns.back().stop = start.AddSeconds(width);
    } else {
      columns.push_back({state, start, start.AddSeconds(width)});
    }
  }
  return columns;
}

}  // namespace

std::string Percent(double number) { return Fixed(number, 3) + "%"; }

std::string Rect(std::string_view classes, double x, double width, std::string_view attributes,
                 std::string_view title) {
  const std::string start = Concat("<rect class=\"", classes, "\" x=\"", Percent(x), "\" width=\"",
                                   Percent(width), "\" ", attributes);
  return title.empty() ? start + "/>" : Concat(start, ">", TitleElement(title), "</rect>");
}

std::string Line(std::string_view classes, std::string_view x1, std::string_view x2, std::string_view y1,
                 std::string_view y2) {
  return Concat("<line class=\"", classes, "\" x1=\"", x1, "\" x2=\"", x2, "\" y1=\"", y1, "\" y2=\"", y2,
                "\"/>");
}

std::string Text(std::string_view classes, double x, std::string_view attributes, std::string_view text) {
  return Concat("<text class=\"", classes, "\" x=\"", Percent(x), "\" ", attributes, ">", Escaped(text),
                "</text>");
}

std::string StateMark(State state, double x, double width, std::string_view title) {
  constexpr std::array<std::string_view, 5> kHeights = {R"(y="22%" height="78%")", R"(y="48%" height="52%")",
                                                        R"(y="48%" height="52%")", R"(y="0%" height="100%")",
                                                        R"(y="84%" height="16%")"};
  const std::string classes = Concat("t-", StateClass(state));
  if (state == State::kNoData) {
    return Concat("<line class=\"", classes, "\" x1=\"", Percent(x), "\" x2=\"", Percent(x + width),
                  R"(" y1="92%" y2="92%">)", TitleElement(title), "</line>");
  }
  return Rect(classes, x, width, kHeights[static_cast<std::size_t>(state)], title);
}

std::string SegmentTitle(const Segment& segment) {
  return Concat(segment.Label(), ", ", ClockText(segment.start), "–", ClockText(segment.stop), ", ",
                DurationText(CutToMinute(SecondsBetween(segment.start, segment.stop))));
}

std::string Band(const Timeline& timeline, const Axis& axis, DateTime from, double least_down, bool titles,
                 bool columns) {
  constexpr double kLeast = 0.04;
  std::string band;
  for (const Segment& segment : columns ? InColumns(timeline, axis, from) : timeline.segments) {
    const double x = axis.At(segment.start);
    double width = axis.At(segment.stop) - x;
    const bool down = segment.state == State::kDown;
    if (down) width = std::max(width, least_down);
    if (width < kLeast) continue;
    band += StateMark(segment.state, std::min(x, 100 - width), width,
                      titles && !columns ? SegmentTitle(segment) : std::string());
  }
  return band + Line("base", "0", "100%", "100%", "100%");
}

}  // namespace kx::tool
