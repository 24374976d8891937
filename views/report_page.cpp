#include "views/report_sections.h"

#include <algorithm>

#include "database/text.h"
#include "views/assets.h"
#include "views/words.h"

namespace kx::tool {
namespace {

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

std::string BigPercent(std::optional<double> number, int decimals) {
  return number ? Concat(Fixed(*number, decimals), "<u>%</u>") : "–";
}

}  // namespace

std::string PercentText(std::optional<double> number, int decimals) {
  return number ? Fixed(*number, decimals) + " %" : "–";
}

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

std::string ReportSections::Html() {
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

std::string ReportSections::Head() const {
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

std::string ReportSections::Totals() const {
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

std::string ReportSections::Notes() const {
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

std::string ReportPage(const PlantReport& report, bool links) {
  const Range& range = report.scope.range;
  if (DaysBetween(range.first, range.last) + 1 > kMostPageDays)
    throw ToolError(Concat("a page shows at most ", kMostPageDays, " days; the tables have no such limit"));
  return ReportSections(report, links).Html();
}

}  // namespace kx::tool
