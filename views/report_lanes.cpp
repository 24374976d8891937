#include "views/report_sections.h"

#include <algorithm>

#include "database/text.h"
#include "views/drawing.h"
#include "views/words.h"

namespace kx::tool {
namespace {

std::string_view StateHeight(bool large) { return large ? "lane" : "lane small"; }

}  // namespace

std::vector<ReportSections::Tick> ReportSections::Ticks() const {
  const std::int64_t hours = axis_.seconds() / 3600;
  std::vector<Tick> ticks;
  if (long_) {
    const std::int64_t days = (hours + 23) / 24, step = days <= 8 ? 1 : days <= 16 ? 2 : 7;
    for (DateTime day = range_.from.Date(); day <= range_.to; day = day.AddDays(step)) {
      if (day < range_.from) continue;
      ticks.push_back(
          {day, Concat(DayText(day).substr(0, 3), " ", static_cast<unsigned>(day.calendar().day()))});
    }
    return ticks;
  }
  const std::int64_t step = std::int64_t{hours <= 10 ? 1 : 3} * 3600;
  const std::int64_t first = SecondsBetween(range_.from.Date(), range_.from);
  for (DateTime time = range_.from.AddSeconds((step - first % step) % step); time <= range_.to;
       time = time.AddSeconds(step))
    ticks.push_back({time, ClockText(time)});
  return ticks;
}

std::string ReportSections::HourLabels() const {
  std::string html = "<svg class=\"axisrow\" aria-hidden=\"true\">";
  const std::vector<Tick> ticks = Ticks();
  for (std::size_t i = 0; i < ticks.size(); ++i) {
    const double x = axis_.At(ticks[i].time);
    // A day's name stands over the day, an hour under its line.
    const char* const anchor = long_ || x < 1 ? "start" : x > 99 ? "end" : "middle";
    if (long_ && x > 97) continue;
    html +=
        Text(i % 2 == 1 ? "odd" : "", x,
             Concat("y=\"15\"", long_ ? " dx=\"3\"" : "", " text-anchor=\"", anchor, "\""), ticks[i].label);
  }
  return html + "</svg>";
}

std::string ReportSections::DowntimeNames(const std::vector<Segment>& segments) const {
  std::vector<const Segment*> downs;
  for (const Segment& segment : segments) {
    if (segment.state == State::kDown) downs.push_back(&segment);
  }
  const auto length = [](const Segment* s) { return SecondsBetween(s->start, s->stop); };
  std::ranges::stable_sort(downs, std::greater(), length);
  constexpr double kLetter = 0.68;  // the width of one, in per cent of the picture
  std::vector<std::pair<double, double>> taken;
  std::string html;
  for (const Segment* down : downs) {
    const std::string name = Concat(down->reason.Text(), ", ", DurationText(length(down)));
    double x = axis_.At(down->start);
    const double width = kLetter * static_cast<double>(name.size());
    const bool at_end = x + width > 100;
    if (at_end) x = axis_.At(down->stop);
    const double left = at_end ? x - width : x;
    if (left < 0 ||
        std::ranges::any_of(taken, [&](const auto& t) { return left < t.second && t.first < left + width; }))
      continue;
    taken.emplace_back(left, left + width + 1);
    html += Text("dn wide", x, at_end ? "y=\"14\" text-anchor=\"end\"" : "y=\"14\"", name);
  }
  return html;
}

std::string ReportSections::Lane(const MachineRow& machine) const {
  const Timeline& timeline = TimelineOf(machine.id);
  const bool detailed = large_ && !long_;
  std::string html = Concat("<span class=\"", large_ ? "name" : "name small", "\">", Escaped(machine.name),
                            "</span><svg class=\"", StateHeight(large_), "\" role=\"img\" aria-label=\"",
                            Escaped(machine.name), "\">");
  for (const Tick& tick : Ticks()) {
    const std::string x = Percent(axis_.At(tick.time));
    html += Line("grid", x, x, "0", "100%");
  }
  Append(html,
         large_ ? R"(<svg y="20" height="26" width="100%" overflow="visible">)"
                : R"(<svg y="5" height="14" width="100%" overflow="visible">)",
         Band(timeline, axis_, range_.from, 0.25, large_, long_), "</svg>");
  if (!long_) {
    for (const DateTime edge : {range_.from, range_.to})
      html += Line("edge", Percent(axis_.At(edge)), Percent(axis_.At(edge)), "0", "100%");
  }
  if (!IsOver() && report_.scope.now > range_.from) {
    const std::string x = Percent(axis_.At(report_.scope.now));
    html += Line("nowline", x, x, "0", "100%");
  }
  if (detailed) {
    for (const Count& count : timeline.good) {
      const std::string x = Percent(axis_.At(count.time));
      html += Line("good", x, x, "48", count.parts > 1 ? "57" : "53");
    }
    for (const Count& count : timeline.scrap) {
      Append(html, "<svg x=\"", Percent(axis_.At(count.time)),
             "\" y=\"48\" width=\"1\" height=\"1\" overflow=\"visible\">",
             Line("scrapx", "-3.5", "3.5", "0", "7"), Line("scrapx", "3.5", "-3.5", "0", "7"), "</svg>");
    }
    html += DowntimeNames(timeline.segments);
    if (IsOver() && timeline.open && !timeline.segments.empty()) {
      const auto last = std::ranges::max_element(timeline.segments, {}, &Segment::stop);
      std::string word(StateWord(last->state));
      word[0] = static_cast<char>(word[0] + ('a' - 'A'));
      html += Text("lab", 100, "y=\"14\" text-anchor=\"end\"", "still " + word);
      html +=
          R"(<svg x="100%" y="36" width="1" height="1" overflow="visible"><polygon class="run" points="-9,1 0,6 -9,11"/></svg>)";
    }
  }
  return html + "</svg>\n";
}

std::string ReportSections::Lanes() const {
  std::string html = "<section class=\"lanes\"><h2>What the machines did</h2><ul class=\"legend\">";
  for (const State state :
       {State::kCycle, State::kSetup, State::kTeardown, State::kDown, State::kIdle, State::kNoData})
    Append(html, "<li><svg aria-hidden=\"true\">", StateMark(state, 0, 100), "</svg>", StateWord(state),
           "</li>");
  if (large_ && !long_) {
    Append(html, "<li class=\"cut-label\"><svg aria-hidden=\"true\">", Line("good", "5", "5", "4", "8"),
           Line("good", "12", "12", "4", "11"),
           "</svg>good parts (one, several)</li><li><svg aria-hidden=\"true\">",
           Line("scrapx", "5", "12", "4", "11"), Line("scrapx", "12", "5", "4", "11"), "</svg>scrap</li>");
  }
  html += "</ul>";
  if (long_)
    html +=
        "<p class=\"how\">Each column stands for a five-hundredth of the time: downtime if it holds any, "
        "else the longest state.</p>";
  html += "<div class=\"rows\"><span></span><svg class=\"axisrow\" aria-hidden=\"true\">";
  if (!long_) {
    for (DateTime day = range_.first.AddDays(-1); day <= range_.last; day = day.AddDays(1)) {
      for (const ShiftTime& shift : report_.calendar.OfDay(day)) {
        if (shift.start < range_.from || shift.start >= range_.to) continue;
        const double x = axis_.At(shift.start);
        Append(html, Text("lab", x, "dx=\"5\" y=\"13\"", shift.name),
               Line("edge", Percent(x), Percent(x), "2", "24"));
      }
    }
    html += Line("edge", "100%", "100%", "2", "24");
  }
  html += "</svg>\n";
  for (const MachineRow& machine : data_.machines) html += Lane(machine);
  return Concat(html, "<span></span>", HourLabels(), "</div></section>\n");
}

}  // namespace kx::tool
