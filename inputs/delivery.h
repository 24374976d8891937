#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "inputs/spool.h"
#include "plant/guard.h"

namespace kx::tool {

// A source that can be listened to, and where its reader goes on.
struct KnownSource {
  InputSource source;
  std::string name;  // "machine 3 (Mill 1)"
  NamedValues state;
};

// How long a plant that is away is left alone before it is tried again: twice as long each time.
struct RetryPauses {
  std::chrono::milliseconds first{1'000}, longest{30'000};
};

// Takes events from the spool to the plant, on a thread of its own, so that a plant that is away keeps nobody
// waiting. A batch and what the plant remembers of it are one transaction.
class Delivery {
 public:
  struct Callbacks {
    std::function<void(std::vector<KnownSource>)> sources;  // each time the plant has been opened
    std::function<void(const std::string&)> say, complain;
  };

  // The callbacks are called on any thread. Reads the options anew each time the plant is opened.
  Delivery(std::function<PlantOptions()> plant, const std::filesystem::path& spool, Callbacks callbacks,
           const RetryPauses& pauses = {});
  // Takes what is left to the plant, as long as that goes at once.
  ~Delivery();
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  // Opens the plant; an exception when that fails. Before Start.
  void Open();
  // From now on the plant is opened again and again when it is away; it is, for `away`, when Open failed.
  void Start(const std::string& away = {});
  // Something was put into the spool.
  void Wake();
  // The plant is to be opened again, and the sources read anew.
  void OpenAgain();

  // Why nothing can be collected for the plant any more.
  std::optional<std::string> Fatal() const;
  // Why the plant is away; empty: it is not.
  std::string Away() const;

 private:
  using Clock = std::chrono::steady_clock;

  void Work();
  void Turn();
  void TurnAway(const std::string& why);
  // The sources that can be listened to.
  std::vector<KnownSource> ReadKnownSources();
  KnownSource Know(const InputSource& source);
  void Agree();
  // False: nothing waits that is worth it.
  bool Deliver(bool states_alone);
  bool Take(WaitingBatch& batch);
  void QueueEvents(const WaitingBatch& batch);
  void Refuse(const SpooledEvent& event, const std::string& why);
  void Wait(Clock::duration pause);

  const std::function<PlantOptions()> options_;
  const Callbacks callbacks_;
  const RetryPauses pauses_;
  Spool spool_;
  std::unique_ptr<Guard> guard_;  // nothing: the plant is away
  Notices refusals_;
  bool agreed_ = false;
  std::size_t at_ = 0;                // the event of the batch that is being queued
  std::vector<std::size_t> refused_;  // of the batch
  Clock::duration pause_{};
  Clock::time_point next_states_{}, away_since_{}, said_at_{};

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  bool woken_ = false, stopping_ = false, open_again_ = false;
  std::string away_;
  std::optional<std::string> fatal_;
  std::thread thread_;
};

}  // namespace kx::tool
