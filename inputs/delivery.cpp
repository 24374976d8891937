#include "inputs/delivery.h"

#include <algorithm>

#include "database/text.h"
#include "inputs/time_guard.h"
#include "plant/progress.h"
#include "plant/queue.h"

namespace kx::tool {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr std::size_t kEventsAtOnce = 1'000;
constexpr seconds kBetweenStates{5};  // that no event came with
constexpr minutes kBetweenSameErrors{10};
constexpr seconds kLastDelivery{10};  // when the collector ends

// Whether a statement fails for what it says, today and for ever: SQLSTATE's class "data exception".
bool IsOfTheData(const DatabaseError& error) { return error.sqlstate().starts_with("22"); }

std::int64_t LastTaken(Plant& plant, const std::string& spool) {
  const Rows rows = plant.Run("select LAST_ROW from T_SFC_SPOOL where SPOOL_NAME = ?", {spool});
  return rows.count() == 0 ? 0 : rows.at(0, 0).ToInt32Or(0);
}

void RememberTaken(Plant& plant, const std::string& spool, std::int64_t number) {
  if (plant.Run("update T_SFC_SPOOL set LAST_ROW = ? where SPOOL_NAME = ?", {number, spool}).affected == 0)
    plant.Run("insert into T_SFC_SPOOL (SPOOL_NAME, LAST_ROW) values (?, ?)", {spool, number});
}

}  // namespace

Delivery::Delivery(std::function<PlantOptions()> plant, const std::filesystem::path& spool,
                   Callbacks callbacks, const RetryPauses& pauses)
    : options_(std::move(plant)),
      callbacks_(std::move(callbacks)),
      pauses_(pauses),
      spool_(spool),
      refusals_([this](Notices::Kind, const std::string& text) { callbacks_.complain(text); }) {}

Delivery::~Delivery() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void Delivery::Start(const std::string& away) {
  if (!away.empty()) TurnAway(away);
  thread_ = std::thread([this] { Work(); });
}

void Delivery::Wake() {
  {
    const std::lock_guard lock(mutex_);
    woken_ = true;
  }
  wake_.notify_one();
}

void Delivery::OpenAgain() {
  {
    const std::lock_guard lock(mutex_);
    open_again_ = true;
  }
  wake_.notify_one();
}

std::optional<std::string> Delivery::Fatal() const {
  const std::lock_guard lock(mutex_);
  return fatal_;
}

std::string Delivery::Away() const {
  const std::lock_guard lock(mutex_);
  return away_;
}

void Delivery::Work() {
  const auto is_over = [this] {
    const std::lock_guard lock(mutex_);
    return stopping_ || fatal_.has_value();
  };
  while (!is_over()) {
    try {
      Turn();
    } catch (const std::exception& error) {
      TurnAway(error.what());
      Wait(pause_);
    }
  }
  try {
    const auto end = Clock::now() + kLastDelivery;
    while (guard_ != nullptr && Clock::now() < end && Deliver(true)) {
    }
  } catch (const std::exception&) {
    // It waits in the spool.
  }
}

void Delivery::Turn() {
  bool open_again = false;
  {
    const std::lock_guard lock(mutex_);
    open_again = std::exchange(open_again_, false);
  }
  if (open_again) guard_.reset();
  if (guard_ == nullptr) {
    Open();
    if (open_again) callbacks_.say("Opened the plant again.");
  }
  guard_->RequireHeld();
  const bool states_due = Clock::now() >= next_states_;
  if (Deliver(states_due)) return;
  if (states_due) next_states_ = Clock::now() + kBetweenStates;
  Wait(kBetweenStates);
}

void Delivery::Open() {
  guard_.reset();
  try {
    guard_ = std::make_unique<Guard>(options_(), Guard::Work::kCollecting);
  } catch (const GuardError& error) {
    // On a server the session of a lost link may live on for a while.
    if (!thread_.joinable()) throw;
    if (error.held_by_this_process) throw ToolError(error.what());
    const std::lock_guard lock(mutex_);
    fatal_ = error.what();
    return;
  }
  if (!agreed_) Agree();
  callbacks_.sources(ReadKnownSources());
  std::string away;
  {
    const std::lock_guard lock(mutex_);
    away = std::exchange(away_, {});
  }
  if (away.empty()) return;
  const auto lasted = std::chrono::duration_cast<seconds>(Clock::now() - away_since_);
  callbacks_.say(Concat("Reaches the plant again, after ", Grouped(lasted.count()), " s; ",
                        Grouped(spool_.CountEvents()), " events wait in the spool."));
}

void Delivery::TurnAway(const std::string& why) {
  // A file that another holds locked is still the plant's.
  if (guard_ != nullptr && guard_->plant().db.in_transaction()) guard_->plant().db.Rollback();
  guard_.reset();
  const auto now = Clock::now();
  std::string before;
  {
    const std::lock_guard lock(mutex_);
    before = std::exchange(away_, why);
  }
  pause_ = before.empty() ? pauses_.first : std::min<Clock::duration>(pause_ * 2, pauses_.longest);
  if (before.empty()) away_since_ = now;
  if (before == why && now - said_at_ < kBetweenSameErrors) return;
  said_at_ = now;
  callbacks_.complain(Concat(before.empty() ? "the plant is out of reach, and is tried again; events wait in "
                                              "the spool: "
                                            : "the plant is still out of reach: ",
                             why));
}

void Delivery::Agree() {
  Plant& plant = guard_->plant();
  const std::string name = spool_.Name();
  const std::int64_t taken = LastTaken(plant, name);
  const bool first = taken == 0 && spool_.CountEvents() == 0;
  const Rows others = plant.Run("select count(*) from T_SFC_SPOOL where SPOOL_NAME <> ?", {name});
  switch (spool_.Agree(taken)) {
    case Spool::Agreement::kSpoolIsOlder:
      callbacks_.complain(
          "the spool is an older copy of the one that the plant knows: what that one held and the plant had "
          "not taken is missing; the collector goes on with a new spool");
      break;
    case Spool::Agreement::kPlantIsOlder:
      callbacks_.complain(
          "the plant is an older copy, or another one: it does not know what it has taken from this spool "
          "before, and that is missing there");
      break;
    case Spool::Agreement::kSame:
      if (first && others.at(0, 0).ToInt32() > 0)
        callbacks_.complain(
            "the spool is new, but the plant has taken events from another one: what was left in that one is "
            "missing");
      break;
  }
  agreed_ = true;
}

std::vector<KnownSource> Delivery::ReadKnownSources() {
  std::vector<InputSource> live;
  std::vector<KnownSource> known;
  for (const InputSource& source : ReadSources(guard_->plant())) {
    if (source.kind.empty() || source.address.empty()) continue;
    try {
      known.push_back(Know(source));
      live.push_back(source);
    } catch (const ToolError& error) {
      callbacks_.complain(Concat("machine ", source.machine_id, " is not listened to: ", error.what()));
    }
  }
  spool_.KeepSources(live);
  return known;
}

KnownSource Delivery::Know(const InputSource& source) {
  Plant& plant = guard_->plant();
  Mapping::Parse(source.mapping);
  KnownSource known{source, plant.FindMachine(source.machine_id).name, {}};
  const auto waiting = spool_.State(source.machine_id, true);
  known.state = waiting ? *waiting : LoadState(plant, StateName(source.machine_id));
  if (known.state.contains("time")) return known;
  // Nothing that it tells can be before this.
  if (const auto time = BeenThrough(plant, source.machine_id)) known.state["time"] = time->ToText();
  return known;
}

bool Delivery::Deliver(bool states_alone) {
  WaitingBatch batch = spool_.Next(kEventsAtOnce);
  if (batch.number == 0 || (batch.events.empty() && !states_alone)) return false;
  refused_.clear();
  while (!Take(batch)) {
  }
  return true;
}

// False: an event was refused, and it is to be tried without it.
bool Delivery::Take(WaitingBatch& batch) {
  Plant& plant = guard_->plant();
  const std::string name = spool_.Name();
  plant.db.Begin();
  try {
    const std::int64_t taken = LastTaken(plant, name);
    if (taken > batch.behind) {
      // Its last answer got lost, or this process ended before it was noted.
      plant.db.Rollback();
      spool_.Forget(taken);
      return true;
    }
    QueueEvents(batch);
    for (const auto& [machine_id, state] : batch.states) SaveState(plant, StateName(machine_id), state);
    RememberTaken(plant, name, batch.number);
  } catch (const DatabaseError& error) {
    plant.db.Rollback();
    if (!IsOfTheData(error) || at_ >= batch.events.size()) throw;
    Refuse(batch.events[at_], error.description());
    refused_.push_back(at_);
    return false;
  }
  plant.db.Commit();
  if (!refused_.empty()) spool_.Count(Spool::Loss::kRefused, static_cast<std::int64_t>(refused_.size()));
  spool_.Forget(batch.number);
  return true;
}

void Delivery::QueueEvents(const WaitingBatch& batch) {
  Plant& plant = guard_->plant();
  std::map<std::int32_t, Machine> machines;
  for (at_ = 0; at_ < batch.events.size(); ++at_) {
    if (std::ranges::find(refused_, at_) != refused_.end()) continue;
    const auto& [machine_id, event] = batch.events[at_];
    try {
      auto machine = machines.find(machine_id);
      if (machine == machines.end())
        machine = machines.emplace(machine_id, plant.FindMachine(machine_id)).first;
      QueueEvent(plant, machine->second, event.event, event.param, event.time);
    } catch (const ToolError& error) {
      Refuse(batch.events[at_], error.what());
      refused_.push_back(at_);
    }
  }
}

void Delivery::Refuse(const SpooledEvent& refused, const std::string& why) {
  const MachineEvent& event = refused.event;
  refusals_.Say(Notices::Kind::kRefused, Concat(refused.machine_id, " ", why),
                Concat("machine ", refused.machine_id, ": ",
                       EventName(event.event.type_code, event.event.time_code, event.event.command_number),
                       event.param.empty() ? "" : Concat(" \"", event.param, "\""), " at ",
                       event.time.ToText(), " is refused: ", why));
}

void Delivery::Wait(Clock::duration pause) {
  std::unique_lock lock(mutex_);
  const bool away = !away_.empty();
  wake_.wait_for(lock, pause,
                 [&] { return stopping_ || open_again_ || fatal_.has_value() || (woken_ && !away); });
  woken_ = false;
}

}  // namespace kx::tool
