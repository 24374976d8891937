#include <algorithm>
#include <cmath>

#include "database/text.h"
#include "views/assets.h"
#include "views/drawing.h"
#include "views/report.h"
#include "views/words.h"

namespace kx::tool {
namespace {

constexpr std::size_t kMostLargeLanes = 12;  // machines with names and ticks, and with steps
constexpr std::size_t kMostReasons = 10;

std::string_view StateHeight(bool large) { return large ? "lane" : "lane small"; }

std::string Sup(int note) { return Concat("<sup>", note, "</sup>"); }

// A number with its units in small, as the totals show it: "14 h 13 min".
std::string BigDuration(std::int64_t seconds) {
  const std::string text = DurationText(seconds);
  std::string html;
  constexpr std::string_view kNoBreak = "\xC2\xA0";
  bool unit = false;
  for (std::size_t at = 0; at <= text.size(); unit = !unit) {
    const std::size_t end = std::min(text.find(kNoBreak, at), text.size());
    const std::string word = text.substr(at, end - at);
    html += unit ? Concat("<u>", word, "</u>") : word;
    at = end == text.size() ? end + 1 : end + kNoBreak.size();
  }
  return html;
}

std::string PercentText(std::optional<double> number, int decimals) {
  return number ? Fixed(*number, decimals) + " %" : "–";
}

std::string BigPercent(std::optional<double> number, int decimals) {
  return number ? Concat(Fixed(*number, decimals), "<u>%</u>") : "–";
}

// Cells of tables: nothing is a dash, zero is muted.
std::string TimeCell(std::int64_t seconds) {
  return seconds == 0 ? "<td><span class=\"nil\">–</span></td>"
                      : Concat("<td>", HourMinuteText(seconds), "</td>");
}
std::string CountCell(std::int64_t count) {
  return count == 0 ? "<td><span class=\"nil\">0</span></td>" : Concat("<td>", count, "</td>");
}
std::string DownCell(std::int64_t seconds) {
  return seconds == 0 ? TimeCell(0) : Concat("<td class=\"bad\">", HourMinuteText(seconds), "</td>");
}

// Everything that the page shows, read once.
struct PageData {
  std::vector<MachineRow> machines;
  std::vector<RecordRow> records;
  std::map<std::int32_t, Sums> by_machine;
  std::vector<Group> by_operator, by_job, by_part;
  Sums total;
  std::vector<DowntimeRow> stops;
  std::vector<ScrapRow> scrap;
  std::map<std::int32_t, Timeline> timelines;
  std::optional<Range> before;
  Sums total_before;

  explicit PageData(const PlantReport& report);
};

PageData::PageData(const PlantReport& report) : machines(ReadMachines(report.plant, report.scope.machine)) {
  Grouping operators(By::kOperator, report.calendar, machines), jobs(By::kJob, report.calendar, machines),
      parts(By::kPart, report.calendar, machines);
  ForEachRecord(report.plant, report.scope, [&](const RecordRow& record) {
    for (Grouping* grouping : {&operators, &jobs, &parts}) grouping->Add(record);
    by_machine[record.machine_id] += record.sums;
    total += record.sums;
    records.push_back(record);
  });
  by_operator = operators.Groups();
  by_job = jobs.Groups();
  by_part = parts.Groups();
  stops = MergeStops(ReadDowntimes(report.plant, report.scope));
  scrap = ReadScrap(report.plant, report.scope);
  timelines = ReadTimelines(report.plant, report.scope, machines, records, stops, scrap);
  before = RangeBefore(report.calendar, report.scope.range);
  if (!before) return;
  ForEachRecord(report.plant, {*before, report.scope.machine, report.scope.now},
                [&](const RecordRow& record) { total_before += record.sums; });
  if (total_before.covered == 0) before.reset();
}

class Page {
 public:
  Page(const PlantReport& report, bool links)
      : report_(report),
        range_(report.scope.range),
        data_(report),
        axis_(range_.from, range_.to),
        links_(links),
        large_(data_.machines.size() <= kMostLargeLanes),
        long_(axis_.seconds() > std::int64_t{2} * 86'400) {}

  std::string Html();

 private:
  std::string Head() const;
  std::string Totals() const;
  std::string Lanes() const;
  std::string Lane(const MachineRow& machine) const;
  std::string DowntimeNames(const std::vector<Segment>& segments) const;
  std::string HourLabels() const;
  std::string Reasons(bool scrap) const;
  std::string Steps() const;
  std::string StepPicture(const Timeline& timeline, const Sums& sums, double scale, std::int64_t line) const;
  std::string BarPicture(std::int32_t machine, const Sums& sums, double scale, std::int64_t line) const;
  std::string Shares() const;
  std::string ShareBar(const Sums& sums) const;
  std::string WhoMadeIt() const;
  std::string Notes() const;

  struct Tick {
    DateTime time;
    std::string label;
  };
  std::vector<Tick> Ticks() const;
  std::string MachinesText(const std::vector<std::int32_t>& ids) const;
  Sums SumsOf(std::int32_t machine) const {
    const auto found = data_.by_machine.find(machine);
    return found == data_.by_machine.end() ? Sums() : found->second;
  }
  const Timeline& TimelineOf(std::int32_t machine) const { return data_.timelines.at(machine); }
  bool IsOver() const { return report_.scope.now >= range_.to; }

  const PlantReport& report_;
  const Range& range_;
  const PageData data_;
  const Axis axis_;
  const bool links_, large_, long_;
};

std::string Page::Html() {
  const std::string title = Escaped(Concat(range_.Title(), " – ", report_.plant_name));
  const std::string style = links_
                                ? std::string(
                                      "<link rel=\"stylesheet\" href=\"/report.css\">"
                                      "<link rel=\"icon\" href=\"/icon.svg\">")
                                : Concat("<style>\n", Asset("colors.css"), Asset("report.css"), "</style>");
  return Concat(
      "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
      "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">"
      "<meta name=\"color-scheme\" content=\"light dark\">\n<title>",
      title, "</title>", style, "</head><body>\n", Head(), Totals(), Lanes(), "<div class=\"pair\">",
      Reasons(false), Reasons(true), "</div>\n", Steps(), Shares(), WhoMadeIt(), Notes(), "</body></html>\n");
}

std::string Page::Head() const {
  std::vector<std::int32_t> running;
  for (const MachineRow& machine : data_.machines) {
    if (SumsOf(machine.id).running) running.push_back(machine.id);
  }
  std::string about = range_.Times();
  if (!about.empty()) about += " · ";
  if (!IsOver() && report_.scope.now > range_.from)
    Append(about, "until ", report_.scope.now.Format("hh:mm"), " · ");
  about += Counted(static_cast<std::int64_t>(data_.machines.size()), "machine");
  if (!running.empty()) {
    Append(about, " · <span class=\"running\">still running: ",
           running.size() > 4 ? Counted(static_cast<std::int64_t>(running.size()), "machine")
                              : MachinesText(running),
           Sup(5), "</span>");
  }
  std::string html =
      Concat("<header class=\"top\"><div><p class=\"plant\">", Escaped(report_.plant_name), "</p><h1>",
             Escaped(range_.Title()), "</h1><p class=\"sub\">", about, "</p></div>");
  if (links_) {
    html += "<nav aria-label=\"Range\"><ul class=\"range\"><li><a href=\"/\">Board</a></li>";
    constexpr std::array<std::pair<const char*, const char*>, 5> kLinks = {{{"shift", "This shift"},
                                                                            {"last", "Last shift"},
                                                                            {"today", "Today"},
                                                                            {"yesterday", "Yesterday"},
                                                                            {"week", "This week"}}};
    for (const auto& [name, text] : kLinks) {
      const auto target = NamedRange(report_.calendar, name, report_.scope.now);
      const bool here = target && target->from == range_.from && target->to == range_.to &&
                        target->shift_id == range_.shift_id;
      Append(html, "<li><a href=\"/report?range=", name, "\"", here ? " aria-current=\"page\"" : "", ">",
             text, "</a></li>");
    }
    html += "</ul></nav>";
  }
  return html + "</header>\n";
}

std::string Page::Totals() const {
  const Sums &now = data_.total, &then = data_.total_before;
  std::string html = "<dl class=\"totals\">";
  const auto add = [&](std::string_view name, std::string_view note, const std::string& value,
                       const std::string& before, bool is_down = false) {
    Append(html, "<div", is_down ? " class=\"is-down\"" : "", "><dt>", name, note, "</dt><dd>", value,
           "</dd>");
    if (data_.before) {
      const std::string label = range_.IsOneShift()           ? data_.before->shift_name
                                : range_.first == range_.last ? "Day before"
                                                              : "Before";
      Append(html, "<dd class=\"before\">", Escaped(label), ": ", before, "</dd>");
    }
    html += "</div>";
  };
  const auto time = [&](std::string_view name, std::string_view note, std::int64_t seconds,
                        std::int64_t before, bool is_down = false) {
    add(name, note, BigDuration(seconds), DurationText(before), is_down);
  };
  add("Good parts", Sup(1), std::to_string(now.good), std::to_string(then.good));
  add("Scrapped parts", Sup(1), std::to_string(now.scrapped), std::to_string(then.scrapped));
  add("Quality", Sup(2), BigPercent(now.Quality(), 1), PercentText(then.Quality(), 1));
  time("In cycle", "", now.cycle, then.cycle);
  add("In cycle, share", Sup(3), BigPercent(now.CycleShare(), 0), PercentText(then.CycleShare(), 0));
  time("Downtime", "", now.downtime, then.downtime, true);
  time("Changeover", Sup(6), now.setup + now.teardown, then.setup + then.teardown);
  return html + "</dl>\n";
}

std::vector<Page::Tick> Page::Ticks() const {
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

std::string Page::HourLabels() const {
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

std::string Page::DowntimeNames(const std::vector<Segment>& segments) const {
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

std::string Page::Lane(const MachineRow& machine) const {
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

std::string Page::Lanes() const {
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

std::string Page::MachinesText(const std::vector<std::int32_t>& ids) const {
  std::string text;
  for (std::size_t i = 0; i < ids.size() && (i < 4 || ids.size() == 5); ++i)
    Append(text, i == 0 ? "" : ", ", Escaped(MachineName(data_.machines, ids[i])));
  return ids.size() > 5 ? Concat(text, " and ", ids.size() - 4, " more") : text;
}

std::string Page::Reasons(bool scrap) const {
  std::vector<ReasonSum> sums = scrap ? SumByReason(data_.scrap) : SumByReason(data_.stops);
  std::string html = scrap ? "<section><h2>Scrap by code</h2>" : "<section><h2>Why they stood still</h2>";
  if (sums.empty())
    return html + (scrap ? "<p>No scrap was reported.</p></section>"
                         : "<p>No downtime was recorded.</p></section>\n");
  html += scrap ? "<p>Most parts first. Dashed: the code is not in the plant’s list.</p>"
                : "<p>Longest first. Framed: the operator’s downtime. Dashed: reason not known.</p>";
  Append(html, "<div class=\"bars\"><span class=\"h\">Reason, code</span><span></span><span class=\"h n\">",
         scrap ? "parts" : "duration", "</span><span class=\"h n\">", scrap ? "" : "stops",
         "</span><span class=\"h\">machine</span>");
  const auto amount = [](const ReasonSum& sum) { return sum.amount + sum.running; };
  const auto largest = static_cast<double>(std::max<std::int64_t>(1, amount(sums.front())));
  // The smallest known ones are one line.
  ReasonSum other;
  std::size_t others = 0;
  while (sums.size() + (others > 0 ? 1 : 0) > kMostReasons) {
    const auto last =
        std::find_if(sums.rbegin(), sums.rend(), [](const ReasonSum& s) { return s.reason.known; });
    if (last == sums.rend()) break;
    other.amount += amount(*last);
    other.stops += last->stops;
    sums.erase(std::next(last).base());
    ++others;
  }
  if (others > 0) {
    other.reason = {"", Concat("other (", others, ")"), true};
    sums.push_back(other);
  }
  for (const ReasonSum& sum : sums) {
    const bool known = sum.reason.known;
    const bool none = !known && sum.reason.number.empty();
    std::string_view bar = scrap             ? (known ? "b-scrap" : "b-scrap-unknown")
                           : !known          ? "b-unknown"
                           : sum.by_operator ? "b-user"
                                             : "b-down";
    const bool framed = bar != "b-down" && bar != "b-scrap";
    const std::string name =
        known ? Escaped(sum.reason.Text())
              : Concat("<span class=\"unknown\">", none ? "No reason given" : "Unknown code", "</span>");
    Append(html, "<span class=\"label\">", name,
           sum.reason.number.empty() ? ""
                                     : Concat(" <span class=\"nil\">", Escaped(sum.reason.number), "</span>"),
           "</span><svg aria-hidden=\"true\">",
           Rect(bar, 0, 98.5 * static_cast<double>(amount(sum)) / largest,
                framed ? "y=\"1\" height=\"16\"" : "y=\"0\" height=\"18\""),
           "</svg><span class=\"n\">", scrap ? std::to_string(sum.amount) : DurationText(amount(sum)),
           sum.running > 0 ? Concat(" ▸", Sup(5)) : "", "</span><span class=\"n\">",
           scrap ? "" : Concat(sum.stops, sum.carried ? Sup(4) : ""), "</span><span class=\"who\">",
           MachinesText(sum.machines), "</span>");
  }
  return html + "</div></section>\n";
}

std::string Page::StepPicture(const Timeline& timeline, const Sums& sums, double scale,
                              std::int64_t line) const {
  constexpr double kBase = 104;
  const auto y = [&](std::int64_t parts) { return Fixed(kBase - scale * static_cast<double>(parts), 1); };
  std::string html = Line("base", "0", "100%", y(0), y(0));
  for (std::int64_t value = line; kBase - scale * static_cast<double>(value) >= 9; value += line)
    Append(html, Line("grid", "0", "100%", y(value), y(value)), "<text x=\"0\" y=\"",
           Fixed(kBase - scale * static_cast<double>(value) - 3, 1), "\">", value, "</text>");
  const double end = std::min(100.0, axis_.At(report_.scope.now));
  double x = 0;
  std::int64_t parts = 0;
  const auto walk = [&](double to) {
    html += Line("step", Percent(x), Percent(to), y(parts), y(parts)), x = to;
  };
  for (std::size_t i = 0; i < timeline.good.size(); ++i) {
    std::int64_t more = timeline.good[i].parts;
    const double at = axis_.At(timeline.good[i].time);
    // Counts closer than a pixel are one step.
    while (i + 1 < timeline.good.size() && axis_.At(timeline.good[i + 1].time) - at < 0.3)
      more += timeline.good[++i].parts;
    walk(at);
    html += Line("step", Percent(x), Percent(x), y(parts), y(parts + more));
    parts += more;
  }
  if (end > x) walk(end);
  for (const Count& count : timeline.scrap) {
    const auto before =
        std::ranges::count_if(timeline.good, [&](const Count& c) { return c.time <= count.time; });
    std::int64_t level = 0;
    for (std::ptrdiff_t i = 0; i < before; ++i) level += timeline.good[static_cast<std::size_t>(i)].parts;
    Append(html, "<svg x=\"", Percent(axis_.At(count.time)), "\" y=\"", y(level),
           "\" width=\"1\" height=\"1\" overflow=\"visible\">", Line("scrapx", "-4", "4", "-4", "4"),
           Line("scrapx", "4", "-4", "-4", "4"), "</svg>");
  }
  html += Text("end", end,
               Concat("y=\"", Fixed(std::max(10.0, kBase - scale * static_cast<double>(parts) - 6), 1),
                      "\" text-anchor=\"", end > 30 ? "end" : "start", "\""),
               Concat(sums.good, " good"));
  for (const double at : {0.0, 50.0, 100.0}) {
    const DateTime time =
        range_.from.AddSeconds(static_cast<std::int64_t>(at / 100 * static_cast<double>(axis_.seconds())));
    html += Text("", at,
                 Concat("y=\"120\" text-anchor=\"",
                        at < 1    ? "start"
                        : at > 99 ? "end"
                                  : "middle",
                        "\""),
                 ClockText(time));
  }
  return html;
}

// A bar a day, or a shift where they are few: good parts, and scrap on top.
std::string Page::BarPicture(std::int32_t machine, const Sums& sums, double scale, std::int64_t line) const {
  constexpr double kBase = 104;
  std::string html = Line("base", "0", "100%", Fixed(kBase, 1), Fixed(kBase, 1));
  for (std::int64_t value = line; kBase - scale * static_cast<double>(value) >= 9; value += line)
    Append(html,
           Line("grid", "0", "100%", Fixed(kBase - scale * static_cast<double>(value), 1),
                Fixed(kBase - scale * static_cast<double>(value), 1)),
           "<text x=\"0\" y=\"", Fixed(kBase - scale * static_cast<double>(value) - 3, 1), "\">", value,
           "</text>");
  const std::int64_t days = DaysBetween(range_.first, range_.last) + 1;
  const double width = 100.0 / static_cast<double>(days);
  for (std::int64_t day = 0; day < days; ++day) {
    Sums booked;
    for (const RecordRow& record : data_.records) {
      if (record.machine_id == machine && record.day == range_.first.AddDays(day)) booked += record.sums;
    }
    const double good = scale * static_cast<double>(std::max<std::int64_t>(0, booked.good)),
                 bad = scale * static_cast<double>(booked.scrapped);
    const double x = width * static_cast<double>(day) + width * 0.12;
    const auto bar = [&](std::string_view classes, double top, double height) {
      if (height > 0)
        html += Rect(classes, x, width * 0.76,
                     Concat("y=\"", Fixed(kBase - top, 1), "\" height=\"", Fixed(height, 1), "\""));
    };
    bar("b-good", good, good);
    bar("b-bad", good + bad, bad);
    if (days <= 10)
      html += Text("", width * (static_cast<double>(day) + 0.5), "y=\"120\" text-anchor=\"middle\"",
                   DayText(range_.first.AddDays(day)).substr(0, 2));
  }
  return html + Text("end", 100, "y=\"8\" text-anchor=\"end\"", Concat(sums.good, " good"));
}

std::string Page::Steps() const {
  if (!large_ || data_.machines.empty()) return "";
  std::int64_t most = 1;
  for (const MachineRow& machine : data_.machines) {
    if (!long_) {
      std::int64_t steps = 0;
      for (const Count& count : TimelineOf(machine.id).good) steps += count.parts;
      most = std::max({most, steps, SumsOf(machine.id).good});
      continue;
    }
    std::map<DateTime, std::int64_t> days;
    for (const RecordRow& record : data_.records) {
      if (record.machine_id == machine.id)
        most = std::max(most, days[record.day] += record.sums.good + record.sums.scrapped);
    }
  }
  std::int64_t line = 1;
  for (std::int64_t unit = 1; most / line > 3; unit *= 10) {
    for (const std::int64_t factor : {1, 2, 5}) {
      if (most / line > 3) line = factor * unit;
    }
  }
  const double scale = 90.0 / static_cast<double>(most);
  std::string html = long_ ? "<section><h2>Parts a day</h2><p>One scale for all machines. On top: "
                             "scrap.</p><div class=\"multi\">"
                           : "<section><h2>Good parts, added up</h2><p>One scale for all machines. × marks "
                             "scrap.</p><div class=\"multi\">";
  for (const MachineRow& machine : data_.machines) {
    const Sums sums = SumsOf(machine.id);
    const std::string name = Escaped(machine.name);
    Append(html, "<div><h3>", name, "</h3><svg role=\"img\" aria-label=\"", name, ": ", sums.good, " good, ",
           sums.scrapped, " scrapped\">",
           long_ ? BarPicture(machine.id, sums, scale, line)
                 : StepPicture(TimelineOf(machine.id), sums, scale, line),
           "</svg></div>\n");
  }
  return html + "</div></section>\n";
}

std::string Page::ShareBar(const Sums& sums) const {
  const std::int64_t booked = sums.covered - sums.NotBooked();
  const auto whole = static_cast<double>(std::max<std::int64_t>({1, sums.covered, booked}));
  std::string html =
      Concat("<svg role=\"img\" aria-label=\"in cycle ", PercentText(sums.CycleShare(), 0), "\">");
  if (sums.covered == 0) return html + StateMark(State::kNoData, 0, 100) + "</svg>";
  double x = 0;
  std::string texts;
  for (const auto& [state, seconds] :
       {std::pair(State::kCycle, sums.cycle), std::pair(State::kSetup, sums.setup),
        std::pair(State::kTeardown, sums.teardown), std::pair(State::kDown, sums.downtime),
        std::pair(State::kIdle, sums.idle)}) {
    const double width = 100 * static_cast<double>(std::max<std::int64_t>(0, seconds)) / whole;
    if (width > 0) html += StateMark(state, x, width);
    if (state == State::kCycle && width >= 12)
      texts += Text(width >= 35 ? "in" : "in wide", 0, "dx=\"6\" y=\"18\"", Fixed(width, 0) + " %");
    if (state == State::kIdle && width >= 12)
      texts +=
          Text("on-idle wide", x + width, "dx=\"-4\" y=\"15\" text-anchor=\"end\"", Fixed(width, 0) + " %");
    x += width;
  }
  if (99.5 - x > 0) html += Rect("s-open", x, 99.85 - x, R"(y="84%" height="14%")");
  if (sums.running && IsOver() && 99.5 - x > 25)
    texts += Text("wide", 100, "y=\"15\" text-anchor=\"end\"", "▸ still running");
  return html + texts + "</svg>";
}

std::string Page::Shares() const {
  std::string html =
      Concat("<section class=\"long\"><h2>Where the time went", Sup(7),
             "</h2><div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"Where the time "
             "went\"><table class=\"share\"><thead><tr><th scope=\"col\">Machine</th><th scope=\"col\" "
             "class=\"lefth\">share of the time</th>");
  const std::array<std::pair<std::string, const char*>, 10> heads = {{{"in cycle", "h:min"},
                                                                      {"setup", "h:min"},
                                                                      {"teardown", "h:min"},
                                                                      {"downtime", "h:min"},
                                                                      {"idle", "h:min"},
                                                                      {"not booked" + Sup(3), "h:min"},
                                                                      {"cycles", "finished"},
                                                                      {"cycles", "cut short"},
                                                                      {"good", "parts"},
                                                                      {"scrap", "parts"}}};
  for (const auto& [name, unit] : heads)
    Append(html, "<th scope=\"col\">", name, "<small>", unit, "</small></th>");
  html += "</tr></thead><tbody>";
  const auto cells = [&](const Sums& sums) {
    const std::string not_booked = sums.running
                                       ? Concat("<td>▸ ", HourMinuteText(sums.NotBooked()), Sup(5), "</td>")
                                       : TimeCell(sums.NotBooked());
    return Concat(TimeCell(sums.cycle), TimeCell(sums.setup), TimeCell(sums.teardown),
                  DownCell(sums.downtime), TimeCell(sums.idle), not_booked, CountCell(sums.finished),
                  CountCell(sums.unfinished), CountCell(sums.good), CountCell(sums.scrapped));
  };
  for (const MachineRow& machine : data_.machines) {
    const Sums sums = SumsOf(machine.id);
    Append(html, "<tr><th scope=\"row\">", Escaped(machine.name), "</th><td class=\"bar\">", ShareBar(sums),
           "</td>", cells(sums), "</tr>\n");
  }
  return Concat(html, "</tbody><tfoot><tr><th scope=\"row\">All</th><td></td>", cells(data_.total),
                "</tr></tfoot></table></div></section>\n");
}

std::string Page::WhoMadeIt() const {
  std::string html = Concat(
      "<section class=\"long\"><h2>Who made it, for which job, which part</h2><div class=\"scroll\" "
      "tabindex=\"0\" role=\"region\" aria-label=\"Who made it\"><table "
      "class=\"by\"><thead><tr><td></td><td></td>"
      "<th scope=\"col\">good<small>parts</small></th><th scope=\"col\">scrap<small>parts</small></th><th "
      "scope=\"col\">quality",
      Sup(2), "<small>%</small></th>");
  for (const char* name : {"in cycle", "setup", "teardown", "downtime", "idle"})
    Append(html, "<th scope=\"col\">", name, "<small>h:min</small></th>");
  html += "</tr></thead>";
  std::int64_t most = 1;
  for (const auto* groups : {&data_.by_operator, &data_.by_job, &data_.by_part}) {
    for (const Group& group : *groups) most = std::max(most, group.sums.good + group.sums.scrapped);
  }
  const auto width = [&](std::int64_t parts) {
    return 96.0 * static_cast<double>(std::max<std::int64_t>(0, parts)) / static_cast<double>(most);
  };
  const auto add = [&](std::string_view title, const std::vector<Group>& groups, std::string_view none) {
    Append(html, "<tbody><tr class=\"group\"><th scope=\"rowgroup\" colspan=\"10\">", title, "</th></tr>\n");
    for (const Group& group : groups) {
      const Sums& sums = group.sums;
      Append(html, group.name.empty() ? "<tr><th scope=\"row\" class=\"none\">" : "<tr><th scope=\"row\">",
             group.name.empty() ? std::string(none) : Escaped(group.name),
             "</th><td class=\"gbar\"><svg aria-hidden=\"true\">",
             sums.good > 0 ? Rect("b-good", 0, width(sums.good), R"(y="3" height="12")") : "",
             sums.scrapped > 0 ? Rect("b-bad", width(sums.good), width(sums.scrapped), R"(y="1" height="16")")
                               : "",
             "</svg></td>", CountCell(sums.good), CountCell(sums.scrapped), "<td>",
             sums.Quality() ? Fixed(*sums.Quality(), 1) : "–", "</td>", TimeCell(sums.cycle),
             TimeCell(sums.setup), TimeCell(sums.teardown), TimeCell(sums.downtime), TimeCell(sums.idle),
             "</tr>\n");
    }
    html += "</tbody>";
  };
  add("Operator", data_.by_operator, "nobody logged on");
  add("Job", data_.by_job, "no job");
  add("Part", data_.by_part, "no part");
  return html + "</table></div></section>\n";
}

std::string Page::Notes() const {
  return Concat(
      "<footer class=\"notes\"><ol>\n"
      "<li>Good and scrapped parts are the sums of GOOD_COUNT and SCRAPPED_COUNT over the records of the "
      "range: a record belongs to the shift and the day (CHART_DATE) on which it was booked.</li>\n"
      "<li>Quality = good ÷ (good + scrapped). It is left empty where no part was made.</li>\n"
      "<li>The share is the time in cycle ÷ the time that records cover; an open record counts until now, at "
      "most to its shift’s end. <i>Not booked</i> is the rest of that time: less cycle, setup, teardown, "
      "downtime and idle times of the records.</li>\n"
      "<li>A stop that goes on over the change of an operator, job or shift counts once. With the mark 4 it "
      "began before the range; only its part within the range is counted as time.</li>\n"
      "<li>▸ The record is still open: what it does now is booked when it ends. The time until now is under "
      "<i>not booked</i>; of a stop that lasts it is shown with its duration.</li>\n"
      "<li>Changeover = setup + teardown.</li>\n"
      "<li>Each duration is rounded to the minute by itself; sums are made of the seconds, so a column can "
      "differ from its sum by a minute or two.</li></ol>\n"
      "<p>All times in plant time. Every number is a sum over the plant’s records; ",
      links_ ? Concat("<a href=\"/report.csv?from=", IsoDay(range_.first), "&amp;to=", IsoDay(range_.last),
                      range_.shift_id ? Concat("&amp;shift=", *range_.shift_id) : "",
                      "\">CSV</a> and <a href=\"/api/v1/report?from=", IsoDay(range_.first),
                      "&amp;to=", IsoDay(range_.last),
                      range_.shift_id ? Concat("&amp;shift=", *range_.shift_id) : "", "\">JSON</a> hold")
             : std::string("<b>kxdata7 report</b> with --csv or --json gives"),
      " the same numbers in full. The plant holds no planned cycle times: performance and OEE are not "
      "computed.</p>\n<p>Made ",
      report_.scope.now.ToText().substr(0, 16), ".</p></footer>\n");
}

}  // namespace

std::string ReportPage(const PlantReport& report, bool links) {
  const Range& range = report.scope.range;
  if (DaysBetween(range.first, range.last) + 1 > kMostPageDays)
    throw ToolError(Concat("a page shows at most ", kMostPageDays, " days; the tables have no such limit"));
  return Page(report, links).Html();
}

}  // namespace kx::tool
