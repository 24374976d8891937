#pragma once

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "inputs/delivery.h"
#include "inputs/links.h"
#include "inputs/live_source.h"
#include "inputs/spool.h"
#include "plant/locked_file.h"

namespace kx::tool {

struct CollectOptions {
  std::function<PlantOptions()> plant;  // read anew each time the plant is opened
  std::filesystem::path spool;          // a folder; made when it is not there
  std::string record;                   // a file for what comes in; empty: none
  SpoolLimits limits;
  LinkSettings links;
  RetryPauses pauses;  // of a plant that is away
};

// Listens to all machines of a plant that speak for themselves. What they tell goes into the spool, and from
// there to the plant. One thread, which calls Run, has the links; another has the plant.
class Collector {
 public:
  // What it does is said on `out`, what keeps it from that on `errors`. A ToolError when another process uses
  // the spool.
  Collector(CollectOptions options, std::ostream& out, std::ostream& errors);
  ~Collector();
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  // Returns after Stop, when all that came in is in the spool. `turn` is called several times a second. An
  // exception when the plant cannot be opened at the beginning and the spool knows no sources, and a
  // GuardError when another process collects for the plant.
  void Run(const std::function<void()>& turn = [] {});

  // From any thread.
  void Stop() { stopping_ = true; }
  void Reload() { reload_ = true; }  // opens the plant again and reads the sources anew

  // "12 of 12 sources, 3,456 lines, 120 events, 0 in the spool": on the thread of Run, or after it.
  std::string Status();

 private:
  using Clock = std::chrono::steady_clock;

  void OpenPlant();
  void TakeSources(std::vector<KnownSource> sources);
  void OpenLinks();
  void CloseLinks();
  void Tick();
  void EverySecond();
  // Moves the batch into the spool. False: the spool takes nothing.
  bool Flush();
  void HeedLimits();
  void SumUp();
  void Say(std::ostream& stream, const std::string& text);

  const CollectOptions options_;
  std::ostream& out_;
  std::ostream& errors_;
  std::mutex saying_;
  const std::filesystem::path file_;  // of the spool
  LockedFile lock_;
  Spool spool_;
  std::string file_identity_;
  std::ofstream record_;
  std::optional<LiveRecorder> recorder_;

  boost::asio::io_context io_;
  boost::asio::steady_timer timer_{io_};
  Links links_;
  LiveSource::Surroundings around_;
  std::map<std::int32_t, std::unique_ptr<LiveSource>> sources_;  // by machine

  std::function<void()> turn_;
  std::atomic<bool> stopping_ = false, reload_ = false;
  std::string spool_error_;                         // why the spool takes nothing; empty: it does
  std::optional<Clock::time_point> unheard_since_;  // the spool is full
  std::int64_t lines_gone_ = 0, events_gone_ = 0;   // of sources that are no more
  std::string summary_;                             // as it was said last
  Clock::time_point next_second_{}, next_summary_{};
  std::unique_ptr<Delivery> delivery_;  // ends first
};

}  // namespace kx::tool
