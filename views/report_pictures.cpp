#include "views/report_sections.h"

#include <algorithm>
#include <cmath>

#include "database/text.h"
#include "views/drawing.h"
#include "views/words.h"

namespace kx::tool {
namespace {

constexpr std::size_t kMostReasons = 10;

}  // namespace

std::string ReportSections::MachinesText(const std::vector<std::int32_t>& ids) const {
  std::string text;
  for (std::size_t i = 0; i < ids.size() && (i < 4 || ids.size() == 5); ++i)
    Append(text, i == 0 ? "" : ", ", Escaped(MachineName(data_.machines, ids[i])));
  return ids.size() > 5 ? Concat(text, " and ", ids.size() - 4, " more") : text;
}

std::string ReportSections::Reasons(bool scrap) const {
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

std::string ReportSections::StepPicture(const Timeline& timeline, const Sums& sums, double scale,
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
std::string ReportSections::BarPicture(std::int32_t machine, const Sums& sums, double scale,
                                       std::int64_t line) const {
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

std::string ReportSections::Steps() const {
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

}  // namespace kx::tool
