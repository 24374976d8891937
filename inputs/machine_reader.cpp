#include "inputs/machine_reader.h"

#include <cstdlib>

namespace kx::tool {

MachineReader::MachineReader(const Mapping& mapping, Notices::Sink sink)
    : notices_(std::move(sink)), reader_(mapping, notices_), state_(mapping) {}

NamedValues MachineReader::Save() const {
  NamedValues values;
  reader_.Save(values);
  state_.Save(values);
  if (last_moment) values["moment"] = std::to_string(last_moment->time_since_epoch().count());
  if (last_time) values["time"] = last_time->ToText();
  return values;
}

void MachineReader::Load(const NamedValues& values) {
  reader_.Load(values);
  state_.Load(values);
  if (const auto moment = values.find("moment"); moment != values.end())
    last_moment = Moment(std::chrono::microseconds(std::atoll(moment->second.c_str())));
  if (const auto time = values.find("time"); time != values.end()) last_time = DateTime::Parse(time->second);
}

}  // namespace kx::tool
