#include "inputs/live_source.h"

#include <ostream>

#include "database/text.h"
#include "inputs/recorded_input.h"
#include "plant/progress.h"

namespace kx::tool {
namespace {

// A link that comes and goes is spoken of so often.
constexpr std::chrono::minutes kBetweenLosses{1};

}  // namespace

void LiveRecorder::NoteOpened(std::int32_t machine_id, Moment arrival) {
  machine_id_ = machine_id;
  arrival_ = arrival;
  out_ << RecordedSection::Head(machine_id, arrival, true) << '\n';
}

void LiveRecorder::Write(std::int32_t machine_id, std::string_view line, Moment arrival) {
  if (machine_id != machine_id_ || arrival != arrival_)
    out_ << RecordedSection::Head(machine_id, arrival) << '\n';
  machine_id_ = machine_id;
  arrival_ = arrival;
  for (const char c : line) out_ << (c == '\n' || c == '\r' ? ' ' : c);
  out_ << '\n';
}

LiveSource::LiveSource(KnownSource known, Surroundings& around)
    : known_(std::move(known)),
      around_(around),
      reader_(Mapping::Parse(known_.source.mapping), [this](Notices::Kind, const std::string& text) {
        around_.complain(Concat(known_.name, ": ", text));
      }) {
  reader_.Load(known_.state);
}

void LiveSource::OnOpened() {
  const Moment now = Now();
  is_open_ = true;
  reader_.Open(now);
  if (around_.recorder != nullptr) around_.recorder->NoteOpened(known_.source.machine_id, now);
  if (lost_since_ && loss_said_) {
    const auto lasted = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *lost_since_);
    around_.say(Concat(known_.name, " is heard again, after ", Grouped(lasted.count()),
                       " s; what it did meanwhile is known only as far as it tells now."));
  }
  lost_since_.reset();
}

void LiveSource::OnLost(const std::string& why) {
  is_open_ = false;
  if (lost_since_) return;
  const auto now = Clock::now();
  lost_since_ = now;
  loss_said_ = !said_at_ || now - *said_at_ >= kBetweenLosses;
  if (!loss_said_) {
    ++unsaid_losses_;
    return;
  }
  said_at_ = now;
  around_.complain(Concat(known_.name, " is not heard, from ", known_.source.address, ": ", why,
                          "; it is tried again",
                          unsaid_losses_ == 0 ? "" : Concat(" (lost ", unsaid_losses_, " times before)")));
  unsaid_losses_ = 0;
}

void LiveSource::Open(Links& links) {
  if (link_ != nullptr) return;
  const std::string& address = known_.source.address;
  link_ = IsAgent() ? links.OpenAgent(address, *this) : links.OpenAdapter(address, *this);
}

void LiveSource::Close() {
  link_.reset();
  is_open_ = false;
}

void LiveSource::OnReceived(std::string_view text, Moment arrival) {
  ++lines_;
  if (around_.recorder != nullptr) around_.recorder->Write(known_.source.machine_id, text, arrival);
  try {
    Take(text, arrival);
  } catch (const ToolError& error) {
    reader_.notices().Say(Notices::Kind::kRefused, error.what(), error.what());
  }
}

void LiveSource::Take(std::string_view text, Moment arrival) {
  changed_ |= IsAgent();  // how far it has been read
  for (Report& report : IsAgent() ? reader_.ReadDocument(text, arrival) : reader_.Read(text, arrival)) {
    reader_.AdmitLive(report, arrival);
    for (MachineEvent& event : reader_.Apply(report)) {
      around_.batch.events.push_back({known_.source.machine_id, std::move(event)});
      ++events_;
    }
    changed_ = true;
  }
}

void LiveSource::SaveState() {
  if (!std::exchange(changed_, false)) return;
  around_.batch.states[known_.source.machine_id] = NamedValuesText(reader_.Save());
}

}  // namespace kx::tool
