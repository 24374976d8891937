#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "database/text.h"
#include "views/drawing.h"
#include "views/report.h"

namespace kx::tool {

inline constexpr std::size_t kMostLargeLanes = 12;  // machines with names and ticks, and with steps

inline std::string Sup(int note) { return Concat("<sup>", note, "</sup>"); }
std::string PercentText(std::optional<double> number, int decimals);

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

// The page, section by section; report_lanes, report_pictures and report_tables draw what their names say.
class ReportSections {
 public:
  ReportSections(const PlantReport& report, bool links)
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

}  // namespace kx::tool
