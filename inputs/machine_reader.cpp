#include "inputs/machine_reader.h"

#include <algorithm>
#include <cstdlib>

#include "database/text.h"

namespace kx::tool {
namespace {

// A connection that has told nothing twice for so long is open all the same.
constexpr std::chrono::seconds kLongestOpening{10};

std::string ClockText(std::int64_t ahead) {
  return Concat(ahead < 0 ? -ahead : ahead, " s ", ahead < 0 ? "slow" : "fast");
}

}  // namespace

MachineReader::MachineReader(const Mapping& mapping, Notices::Sink sink)
    : notices_(std::move(sink)),
      reader_(mapping, notices_),
      agent_reader_(mapping, notices_),
      state_(mapping) {}

void MachineReader::Open(Moment arrival) {
  reader_.Reconnect();
  opened_ = arrival;
  told_.clear();
}

std::vector<Report> MachineReader::Read(std::string_view line, std::optional<Moment> arrival) {
  if (arrival && line.starts_with("<?xml")) return ReadDocument(line, *arrival);
  std::vector<Report> reports = reader_.Read(line, arrival);
  if (opened_) MarkOpening(reports, arrival);
  return reports;
}

void MachineReader::MarkOpening(std::vector<Report>& reports, std::optional<Moment> arrival) {
  if (arrival && *arrival - *opened_ > kLongestOpening) opened_.reset();
  for (Report& report : reports) {
    for (const Observation& told : report.observations) {
      // There are several alarms.
      if (!told_.insert(told.item).second && told.item != Item::kAlarm) opened_.reset();
    }
    if (!opened_) return;
    report.opening = true;
  }
}

void MachineReader::AdmitLive(Report& report, Moment arrival) {
  const DateTime arrived = ToPlantTime(arrival, false);
  const std::int64_t ahead = SecondsBetween(arrived, report.time);
  // The plant's clock may have been put back meanwhile.
  const bool in_order = last_moment && report.moment >= *last_moment;
  const bool old = last_time && !in_order && SecondsBetween(report.time, *last_time) > kClockLimit.count();
  if (old && report.opening && !clock_is_wrong_) {
    // What holds when a connection opens may have been so for long.
    report.moment = last_moment.value_or(arrival);
  } else if (ahead > kClockLimit.count() || old) {
    clock_is_wrong_ = true;
    notices_.Say(Notices::Kind::kNote, "wrong clock",
                 Concat("the clock of the machine is ", ClockText(ahead), ", at ", report.time.ToText(),
                        ": the time of arrival is taken instead"));
    report.moment = arrival;
    report.time = arrived;
    // An agent tells what happened while nobody asked.
  } else if (-ahead > kClockLimit.count() && !report.opening && agent_reader_.taken().empty()) {
    notices_.Say(Notices::Kind::kNote, "late",
                 Concat("what the machine tells is ", -ahead, " s old, at ", report.time.ToText(),
                        "; if that is its clock, set it, or set times=arrival in its mapping"));
  }
  if (last_time) report.time = std::max(report.time, *last_time);
  if (last_moment) report.moment = std::max(report.moment, *last_moment);
}

std::string MachineReader::Taken() const {
  const std::string keys = TakenText(reader_.taken());
  const std::string ids = TakenText(agent_reader_.taken());
  return Concat(keys, keys.empty() || ids.empty() ? "" : ", ", ids);
}

std::string MachineReader::KeysSeen() const {
  std::string text = reader_.KeysSeen();
  for (const std::string& key : agent_reader_.seen()) Append(text, text.empty() ? "" : ", ", key);
  return text;
}

std::vector<MachineEvent> MachineReader::Apply(const Report& report) {
  last_moment = report.moment;
  last_time = report.time;
  return state_.Apply(report, notices_);
}

NamedValues MachineReader::Save() const {
  NamedValues values;
  reader_.Save(values);
  agent_reader_.Save(values);
  state_.Save(values);
  if (last_moment) values["moment"] = std::to_string(last_moment->time_since_epoch().count());
  if (last_time) values["time"] = last_time->ToText();
  return values;
}

void MachineReader::Load(const NamedValues& values) {
  reader_.Load(values);
  agent_reader_.Load(values);
  state_.Load(values);
  if (const auto moment = values.find("moment"); moment != values.end())
    last_moment = Moment(std::chrono::microseconds(std::atoll(moment->second.c_str())));
  if (const auto time = values.find("time"); time != values.end()) last_time = DateTime::Parse(time->second);
}

}  // namespace kx::tool
