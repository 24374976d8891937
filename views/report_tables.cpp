#include "views/report_sections.h"

#include <algorithm>

#include "database/text.h"
#include "views/drawing.h"
#include "views/words.h"

namespace kx::tool {
namespace {

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

}  // namespace

std::string ReportSections::ShareBar(const Sums& sums) const {
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

std::string ReportSections::Shares() const {
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

std::string ReportSections::WhoMadeIt() const {
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

}  // namespace kx::tool
