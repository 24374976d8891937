#include "inputs/collector.h"

#include <boost/asio/post.hpp>
#include <ctime>
#include <ostream>

#include "database/text.h"
#include "plant/platform.h"
#include "plant/progress.h"
#include "plant/service_line.h"

namespace kx::tool {
namespace {

// What comes in within this goes into the spool together.
constexpr std::chrono::milliseconds kBetweenTicks{100};

std::filesystem::path MakeSpoolFolder(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw ToolError(Concat("cannot make the folder ", ToText(folder), ": ", error.message()));
  return folder / "spool.db";
}

const std::filesystem::path& RequireHeld(LockedFile& lock, const std::filesystem::path& spool) {
  if (!lock.held()) {
    const std::string holder = lock.Read();
    throw ToolError(Concat("the spool ", ToText(spool), " is in use by ",
                           holder.empty() ? "another process" : holder, "; each collector needs its own"));
  }
  lock.Write(ProcessName());
  return spool;
}

}  // namespace

Collector::Collector(CollectOptions options, std::ostream& out, std::ostream& errors)
    : options_(std::move(options)),
      out_(out),
      errors_(errors),
      file_(MakeSpoolFolder(options_.spool)),
      lock_(options_.spool / "in-use"),
      spool_(RequireHeld(lock_, file_), options_.limits),
      file_identity_(FileIdentity(file_)),
      links_(io_, options_.links) {
  around_.say = [this](const std::string& text) { Say(out_, text); };
  around_.complain = [this](const std::string& text) { Say(errors_, text); };
  if (options_.record.empty()) return;
  record_.open(ToPath(options_.record), std::ios::binary | std::ios::app);
  if (!record_) throw ToolError(options_.record + ": cannot be written");
  around_.recorder = &recorder_.emplace(record_);
}

Collector::~Collector() = default;

void Collector::Run(const std::function<void()>& turn) {
  turn_ = turn;
  OpenPlant();
  next_summary_ = Clock::now() + std::chrono::minutes(1);
  Tick();
  io_.run();
  if (!Flush())
    Say(errors_, Concat("the spool takes nothing, and ",
                        Grouped(static_cast<std::int64_t>(around_.batch.events.size())),
                        " events are lost: ", spool_error_));
  const auto fatal = delivery_->Fatal();
  delivery_.reset();
  if (fatal) throw GuardError(*fatal);
}

void Collector::OpenPlant() {
  Delivery::Callbacks callbacks;
  callbacks.sources = [this](std::vector<KnownSource> sources) {
    boost::asio::post(io_, [this, sources = std::move(sources)] { TakeSources(sources); });
  };
  callbacks.say = around_.say;
  callbacks.complain = around_.complain;
  delivery_ = std::make_unique<Delivery>(options_.plant, file_, callbacks, options_.pauses);
  std::string away;
  try {
    delivery_->Open();
  } catch (const GuardError&) {
    throw;
  } catch (const std::exception& error) {
    std::vector<KnownSource> known;
    for (const InputSource& source : spool_.Sources()) {
      known.push_back({source, Concat("machine ", source.machine_id),
                       spool_.State(source.machine_id, false).value_or(NamedValues())});
    }
    if (known.empty()) throw;
    away = error.what();
    TakeSources(std::move(known));
  }
  delivery_->Start(away);
}

void Collector::TakeSources(std::vector<KnownSource> sources) {
  std::map<std::int32_t, std::unique_ptr<LiveSource>> before = std::move(sources_);
  sources_.clear();
  for (KnownSource& known : sources) {
    const std::int32_t machine_id = known.source.machine_id;
    std::unique_ptr<LiveSource> source = std::move(before[machine_id]);
    before.erase(machine_id);
    if (source != nullptr && source->known().source != known.source) {
      // Its address or its mapping is another one; it goes on from what is known.
      source->SaveState();
      known.state = source->State();
      lines_gone_ += source->lines();
      events_gone_ += source->events();
      source.reset();
    }
    if (source == nullptr) source = std::make_unique<LiveSource>(std::move(known), around_);
    sources_[machine_id] = std::move(source);
  }
  for (const auto& [machine_id, gone] : before) {
    gone->SaveState();
    lines_gone_ += gone->lines();
    events_gone_ += gone->events();
    Say(out_, Concat(gone->known().name, " is not listened to any more."));
  }
  if (sources_.empty()) Say(errors_, "no machine of the plant has a source that it could be heard from");
  OpenLinks();
}

void Collector::OpenLinks() {
  if (unheard_since_ || !spool_error_.empty()) return;
  for (const auto& [machine_id, source] : sources_) {
    try {
      source->Open(links_);
    } catch (const ToolError& error) {
      source->OnLost(error.what());
    }
  }
}

void Collector::CloseLinks() {
  for (const auto& [machine_id, source] : sources_) source->Close();
}

void Collector::Tick() {
  turn_();
  if (stopping_ || delivery_->Fatal()) return io_.stop();
  if (reload_.exchange(false)) delivery_->OpenAgain();
  const auto now = Clock::now();
  if (spool_error_.empty() || now >= next_second_) Flush();
  if (now >= next_second_) {
    next_second_ = now + std::chrono::seconds(1);
    EverySecond();
  }
  timer_.expires_after(kBetweenTicks);
  timer_.async_wait([this](const boost::system::error_code&) { Tick(); });
}

bool Collector::Flush() {
  for (const auto& [machine_id, source] : sources_) source->SaveState();
  if (around_.batch.empty()) return true;
  try {
    spool_.Put(around_.batch, std::time(nullptr));
  } catch (const std::exception& error) {
    if (spool_error_.empty())
      Say(errors_, Concat("the spool takes nothing, and the machines are not listened to until it does: ",
                          error.what()));
    spool_error_ = error.what();
    CloseLinks();
    return false;
  }
  if (!around_.batch.events.empty()) delivery_->Wake();
  around_.batch = {};
  HeedLimits();
  if (spool_error_.empty()) return true;
  spool_error_.clear();
  Say(out_, "The spool takes events again; the machines are listened to again.");
  OpenLinks();
  return true;
}

void Collector::EverySecond() {
  if (FileIdentity(file_) != file_identity_ || !lock_.StillHeld())
    throw ToolError(Concat("the spool in ", ToText(options_.spool), " was replaced or deleted while in use"));
  if (record_.is_open() && !record_.flush()) {
    Say(errors_, options_.record + ": cannot be written; nothing more is recorded");
    around_.recorder = nullptr;
    record_.close();
  }
  if (unheard_since_) {
    spool_.Count(Spool::Loss::kUnheard, 1);
    HeedLimits();
  }
  if (Clock::now() >= next_summary_) SumUp();
}

void Collector::HeedLimits() {
  const auto now = Clock::now();
  const bool full = spool_.IsFull(std::time(nullptr));
  if (full == unheard_since_.has_value()) return;
  if (full) {
    Say(errors_, Concat("the spool is full, with ", Grouped(spool_.CountEvents()),
                        " events: the machines are not listened to until the plant has taken some of them"));
    unheard_since_ = now;
    CloseLinks();
  } else {
    const auto lasted = std::chrono::duration_cast<std::chrono::seconds>(now - *unheard_since_);
    Say(out_,
        Concat("The spool has room again; the machines were not heard for ", Grouped(lasted.count()), " s."));
    unheard_since_.reset();
    OpenLinks();
  }
}

std::string Collector::Status() {
  std::int64_t open = 0;
  std::int64_t lines = lines_gone_;
  std::int64_t events = events_gone_;
  for (const auto& [machine_id, source] : sources_) {
    open += source->is_open() ? 1 : 0;
    lines += source->lines();
    events += source->events();
  }
  std::string text = Concat(open, " of ", sources_.size(), " sources, ", Grouped(lines), " lines, ",
                            Grouped(events), " events, ", Grouped(spool_.CountEvents()), " in the spool");
  const std::int64_t refused = spool_.Counted(Spool::Loss::kRefused);
  const std::int64_t unheard = spool_.Counted(Spool::Loss::kUnheard);
  if (refused > 0) Append(text, ", ", Grouped(refused), " refused");
  if (unheard > 0) Append(text, ", ", Grouped(unheard), " s not heard");
  if (unheard_since_) text += "; the spool is full";
  if (!spool_error_.empty()) Append(text, "; the spool takes nothing: ", spool_error_);
  if (const std::string away = delivery_ == nullptr ? "" : delivery_->Away(); !away.empty())
    Append(text, "; the plant is out of reach: ", away);
  return text;
}

void Collector::SumUp() {
  next_summary_ = Clock::now() + std::chrono::minutes(1);
  std::string status = Status();
  if (status == summary_) return;
  Say(out_, status + ".");
  summary_ = std::move(status);
}

void Collector::Say(std::ostream& stream, const std::string& text) {
  const std::lock_guard lock(saying_);
  stream << (&stream == &errors_ ? "kxdata7: " : "") << ServiceLine(text) << std::endl;
}

}  // namespace kx::tool
