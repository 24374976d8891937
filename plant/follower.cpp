#include "plant/follower.h"

#include <algorithm>
#include <ctime>
#include <ostream>

#include "plant/progress.h"
#include "plant/queue.h"
#include "plant/service_line.h"

namespace kx::tool {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

// Between two looks at an empty queue: in a file nearly free, on a server a round trip.
constexpr milliseconds kPollFile{20};
constexpr milliseconds kPollServer{250};
constexpr seconds kBetweenShifts{5};
constexpr seconds kFirstPause{1};
constexpr seconds kLongestPause{30};
constexpr minutes kBetweenSameErrors{10};
// A refresh that fails is set aside in any case: the machine's next event closes the shift as well.
constexpr minutes kRefreshMayFail{1};

Follower::Clock::duration Longer(Follower::Clock::duration pause) {
  return std::min<Follower::Clock::duration>(pause * 2, kLongestPause);
}

}  // namespace

Follower::Follower(std::function<PlantOptions()> plant, const FollowOptions& options, std::ostream& out,
                   std::ostream& errors)
    : plant_options_(std::move(plant)), options_(options), out_(out), errors_(errors) {}

void Follower::Run() {
  Open();
  service_.Ready();
  Say(out_, "Works the plant off.");
  next_summary_ = options_.now() + minutes(1);
  while (!stop_.requested()) {
    try {
      if (stop_.TakeReopen()) {
        Open();
        Say(out_, "Opened the plant again.");
      }
      Turn();
    } catch (const GuardError&) {
      throw;
    } catch (const std::exception& error) {
      OpenAgain(error.what());
    }
  }
  service_.Stopping();
  if (processor_ != nullptr) Report(true);
  Say(out_, "Stopped; " + Grouped(applied_) + " events applied in all.");
}

void Follower::Open() {
  processor_.reset();
  processor_ = std::make_unique<Processor>(plant_options_());
  failure_ = {};
  next_shifts_ = {};
}

void Follower::Turn() {
  service_.Alive();
  Report(false);
  switch (processor_->Next()) {
    case Processor::Outcome::kApplied: return OnApplied();
    case Processor::Outcome::kFailed: return OnFailure();
    case Processor::Outcome::kNothingWaits: break;
  }
  if (options_.now() >= next_shifts_) {
    next_shifts_ = options_.now() + kBetweenShifts;
    if (idle_shifts_.Queue(processor_->plant(), processor_->component()) > 0) return;
  }
  Wait(processor_->plant().db.target() == SqlTarget::kSqlite ? kPollFile : kPollServer);
}

void Follower::OnApplied() {
  ++applied_;
  last_applied_ = std::time(nullptr);
  changed_ = true;
  if (const std::string warning = processor_->Warning(); !warning.empty()) Say(errors_, warning);
  if (failure_.row != -1) Say(out_, "Goes on after row " + std::to_string(failure_.row) + ".");
  failure_ = {};
}

void Follower::OnFailure() {
  if (!processor_->component().IsConnected()) throw ToolError(processor_->error());
  const auto now = options_.now();
  const std::int32_t row = processor_->row();
  if (row != failure_.row) failure_ = {row, now, now, {}, kFirstPause};
  const std::string text = processor_->FailureText();
  if (text != failure_.text || now - failure_.said >= kBetweenSameErrors) {
    Say(errors_, text);
    failure_.text = text;
    failure_.said = now;
    changed_ = true;
  }
  if (SetFailedAside()) return;
  Wait(failure_.pause);
  failure_.pause = Longer(failure_.pause);
}

bool Follower::SetFailedAside() {
  if (processor_->applied_but_queued()) return false;
  const auto event = ReadQueuedEvent(processor_->plant(), failure_.row);
  auto limit = options_.set_aside_after;
  if (event && event->command_id == -1) limit = std::min(kRefreshMayFail, limit.value_or(kRefreshMayFail));
  if (!limit || options_.now() - failure_.since < *limit) return false;
  try {
    if (!SetAside(processor_->plant(), failure_.row, processor_->error(),
                  ServerTime(processor_->component())))
      return false;
  } catch (const DatabaseError& error) {
    Say(errors_, "row " + std::to_string(failure_.row) + " could not be set aside: " + error.description());
    return false;
  }
  Say(errors_, "Set aside " + failure_.text);
  failure_ = {};
  return true;
}

void Follower::OpenAgain(const std::string& why) {
  processor_.reset();
  Say(errors_, "the plant is out of reach, and is tried again: " + why);
  service_.Status("out of reach: " + why);
  std::string said = why;
  auto said_at = options_.now();
  const auto since = said_at;
  for (Clock::duration pause = kFirstPause; !stop_.requested(); pause = Longer(pause)) {
    Wait(pause);
    stop_.TakeReopen();
    if (stop_.requested()) return;
    try {
      Open();
      Say(out_, "Reaches the plant again, after " +
                    Grouped(duration_cast<seconds>(options_.now() - since).count()) + " s.");
      changed_ = true;
      return;
    } catch (const GuardError& error) {
      // On a server the session of the lost link may live on for a while.
      if (!error.held_by_this_process) throw;
    } catch (const std::exception& error) {
      if (error.what() == said && options_.now() - said_at < kBetweenSameErrors) continue;
      said = error.what();
      said_at = options_.now();
      Say(errors_, "the plant is still out of reach: " + said);
    }
  }
}

void Follower::Wait(Clock::duration pause) {
  const auto end = options_.now() + pause;
  for (Clock::duration left = pause; left > Clock::duration::zero(); left = end - options_.now()) {
    service_.Alive();
    const auto piece = std::min<Clock::duration>(left, service_.alive_interval() / 2);
    // Up, so that a rest of less than a millisecond does not spin.
    options_.rest(stop_, std::chrono::ceil<milliseconds>(piece));
    if (stop_.requested() || stop_.reopen_requested()) return;
  }
}

void Follower::Report(bool at_once) {
  const auto now = options_.now();
  const bool status_due = changed_ && (at_once || now >= next_status_);
  const bool summary_due = applied_ != summed_up_ && (at_once || now >= next_summary_);
  if (now >= next_summary_) next_summary_ = now + minutes(1);
  if (!status_due && !summary_due) return;
  next_status_ = now + seconds(1);
  changed_ = false;
  const std::string waiting = Grouped(processor_->component().Count()) + " wait";
  service_.Status(Grouped(applied_) + " applied, " + waiting +
                  (last_applied_ == 0 ? "" : ", last " + TimeOfDay(last_applied_)) +
                  (failure_.row == -1 ? "" : "; " + failure_.text));
  if (!summary_due) return;
  Say(out_, Grouped(applied_ - summed_up_) + " events applied, " + waiting + ".");
  summed_up_ = applied_;
}

void Follower::Say(std::ostream& stream, const std::string& text) {
  stream << (&stream == &errors_ ? "kxdata7: " : "") << ServiceLine(text) << std::endl;
}

}  // namespace kx::tool
