#include "views/pages.h"

#include <array>
#include <charconv>
#include <map>
#include <sstream>

#include "database/text.h"
#include "views/report.h"

namespace kx::tool {
namespace {

using Query = std::map<std::string, std::string, std::less<>>;

std::string Decoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned code = 0;
    if (text[i] == '%' && i + 2 < text.size() &&
        std::from_chars(text.data() + i + 1, text.data() + i + 3, code, 16).ptr == text.data() + i + 3) {
      decoded += static_cast<char>(code);
      i += 2;
    } else {
      decoded += text[i] == '+' ? ' ' : text[i];
    }
  }
  return decoded;
}

Query ParseQuery(std::string_view target) {
  Query query;
  const std::size_t mark = target.find('?');
  std::string_view rest = mark == std::string_view::npos ? std::string_view() : target.substr(mark + 1);
  while (!rest.empty()) {
    const std::string_view pair = rest.substr(0, rest.find('&'));
    rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
    const std::size_t equals = pair.find('=');
    if (equals != std::string_view::npos)
      query[Decoded(pair.substr(0, equals))] = Decoded(pair.substr(equals + 1));
  }
  return query;
}

const std::string* Find(const Query& query, std::string_view name) {
  const auto found = query.find(name);
  return found == query.end() ? nullptr : &found->second;
}

DateTime ParseDay(const std::string& text) {
  const auto day = DateTime::Parse(text);
  if (!day) throw ToolError(Concat("\"", text, "\" is no date; write YYYY-MM-DD"));
  return *day;
}

Range RangeOfQuery(const Query& query, const Calendar& calendar, DateTime now) {
  std::optional<std::int32_t> shift;
  if (const std::string* name = Find(query, "shift")) shift = calendar.FindShift(*name);
  const std::string *from = Find(query, "from"), *to = Find(query, "to"), *name = Find(query, "range");
  if (from != nullptr) {
    const DateTime first = ParseDay(*from);
    return MakeRange(calendar, first, to != nullptr ? ParseDay(*to) : first, shift);
  }
  if (to != nullptr) throw ToolError("a range needs from beside to");
  const std::string named = name != nullptr ? *name : "today";
  const auto range = NamedRange(calendar, named, now);
  if (!range) throw ToolError(Concat("there is no range \"", named, "\"; there are ", RangeNames()));
  return shift ? MakeRange(calendar, range->first, range->last, shift) : *range;
}

constexpr std::array<std::string_view, 6> kTargets = {"/report",        "/report.csv",       "/api/v1/report",
                                                      "/api/v1/events", "/api/v1/downtimes", "/api/v1/scrap"};
// What one answer sums at most: others wait for it.
constexpr std::int64_t kMostServedDays = 400;

}  // namespace

Page PlainPage(unsigned status, std::string_view text) {
  return {status, "text/plain; charset=utf-8", Concat(text, "\n")};
}

bool IsReportTarget(std::string_view path) { return std::ranges::find(kTargets, path) != kTargets.end(); }

Page ReportAnswer(Plant& plant, const std::string& plant_name, DateTime now, std::string_view target) {
  const std::string_view path = target.substr(0, target.find('?'));
  try {
    const Query query = ParseQuery(target);
    const Calendar calendar(plant);
    PlantReport report{plant, calendar, plant_name, {RangeOfQuery(query, calendar, now), {}, now}};
    if (DaysBetween(report.scope.range.first, report.scope.range.last) >= kMostServedDays)
      throw ToolError(Concat("the range has more than ", kMostServedDays, " days"));
    if (const std::string* machine = Find(query, "machine")) {
      std::int32_t number = 0;
      const char* const end = machine->data() + machine->size();
      if (std::from_chars(machine->data(), end, number).ptr != end || machine->empty())
        throw ToolError(Concat("\"", *machine, "\" is no number of a machine"));
      report.scope.machine = plant.FindId("T_SFC_MACHINE", number);
    }
    if (path == "/report") return {200, "text/html; charset=utf-8", ReportPage(report, true)};
    const std::string* const by = Find(query, "by");
    const bool csv = path == "/report.csv";
    const Format format = csv ? Format::kCsv : Format::kJson;
    std::ostringstream output;
    if (path == "/api/v1/events") {
      PrintEvents(report, format, output);
    } else if (path == "/api/v1/downtimes") {
      PrintDowntimes(report, format, output);
    } else if (path == "/api/v1/scrap") {
      PrintScrap(report, format, output);
    } else {
      PrintReport(report, by != nullptr ? *by : "", format, output);
    }
    return {200, csv ? "text/csv; charset=utf-8" : "application/json", output.str()};
  } catch (const ToolError& error) {
    return PlainPage(400, error.what());
  }
}

}  // namespace kx::tool
