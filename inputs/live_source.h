#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include "inputs/delivery.h"
#include "inputs/links.h"
#include "inputs/machine_reader.h"
#include "inputs/spool.h"

namespace kx::tool {

// Writes what came in, so that "import" makes the same of it.
class LiveRecorder {
 public:
  explicit LiveRecorder(std::ostream& out) : out_(out) {}
  void NoteOpened(std::int32_t machine_id, Moment arrival);
  void Write(std::int32_t machine_id, std::string_view line, Moment arrival);

 private:
  std::ostream& out_;
  std::int32_t machine_id_ = 0;
  Moment arrival_;
};

// One machine that speaks for itself: what comes through its link becomes events of a batch.
class LiveSource final : public LinkOwner {
 public:
  // What the sources of a collector share; it outlives them.
  struct Surroundings {
    SpoolBatch batch;
    std::function<void(const std::string&)> say, complain;
    LiveRecorder* recorder = nullptr;
  };

  // A ToolError for a mapping that is wrong.
  LiveSource(KnownSource known, Surroundings& around);

  void OnOpened() override;
  void OnReceived(std::string_view text, Moment arrival) override;
  void OnLost(const std::string& why) override;
  std::string NextRequest() override { return reader_.NextRequest(); }

  // A ToolError for an address that is none.
  void Open(Links& links);
  void Close();

  // Puts what the reader knows into the batch, when that has changed.
  void SaveState();
  NamedValues State() const { return reader_.Save(); }

  const KnownSource& known() const { return known_; }
  bool is_open() const { return is_open_; }
  std::int64_t lines() const { return lines_; }
  std::int64_t events() const { return events_; }

 private:
  using Clock = std::chrono::steady_clock;

  bool IsAgent() const { return known_.source.kind == "agent"; }
  void Take(std::string_view text, Moment arrival);

  const KnownSource known_;
  Surroundings& around_;
  MachineReader reader_;
  bool is_open_ = false;
  bool changed_ = false;  // since its state was saved
  std::int64_t lines_ = 0, events_ = 0;
  // Of a link that was lost: since when, and whether that was said.
  std::optional<Clock::time_point> lost_since_, said_at_;
  bool loss_said_ = false;
  int unsaid_losses_ = 0;
  std::unique_ptr<SourceLink> link_;  // ends first
};

}  // namespace kx::tool
