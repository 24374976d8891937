#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "database/connection.h"
#include "inputs/machine_state.h"
#include "inputs/source.h"

namespace kx::tool {

struct SpoolLimits {
  std::int64_t days = 30;  // that the oldest event may wait
  std::int64_t bytes = std::int64_t{1} << 30;
};

struct SpooledEvent {
  std::int32_t machine_id;
  MachineEvent event;
};

// Events in the order in which they came, and what the readers of the machines knew behind them.
struct SpoolBatch {
  std::vector<SpooledEvent> events;
  std::map<std::int32_t, std::string> states;  // by machine

  bool empty() const { return events.empty() && states.empty(); }
};

// Batches that wait for the plant, as one. `number` is that of the last of them, 0 when nothing waits.
struct WaitingBatch : SpoolBatch {
  std::int64_t number = 0;
  std::int64_t behind = 0;  // the batch before them, which the plant was the last to take
};

// Events that wait for the plant, in an SQLite file of the collector's own. What was put into it is on the
// disk. Batches are numbered, and the plant remembers, under the spool's name, the last one it took: so each
// is taken once, whenever the process ends. An object is one link, for one thread.
class Spool {
 public:
  // Makes the file when there is none.
  explicit Spool(const std::filesystem::path& file, const SpoolLimits& limits = {});

  // A random name, made with the file: no two spools are taken for each other.
  std::string Name();
  // Whether the file was made by this object.
  bool is_new() const { return is_new_; }

  // Puts a batch behind all others, whole or not at all. `now` in seconds since 1970.
  void Put(const SpoolBatch& batch, std::int64_t now);
  // The oldest batches, as many as hold so many events.
  WaitingBatch Next(std::size_t events);
  // The plant has taken all batches up to `number`.
  void Forget(std::int64_t number);
  std::int64_t CountEvents();  // that wait

  // What was lost so far, for the life of the spool: events that the plant could never take, and seconds in
  // which the machines were not heard since the spool was full.
  enum class Loss { kRefused, kUnheard };
  void Count(Loss loss, std::int64_t more);
  std::int64_t Counted(Loss loss);

  // What the reader of a machine's input knew last; `waiting`: when the plant has not been told yet.
  std::optional<NamedValues> State(std::int32_t machine_id, bool waiting);
  // The sources as the plant had them last, to start with when the plant is away.
  std::vector<InputSource> Sources();
  void KeepSources(const std::vector<InputSource>& sources);

  // To be called when the plant is reached for the first time, with the last batch that it took from a spool
  // of this name, 0 for none. When it has taken more than this file ever held, the file is an older copy:
  // what it held when it was opened is dropped then, since the plant has it, and what came later goes under
  // a new name.
  enum class Agreement { kSame, kSpoolIsOlder, kPlantIsOlder };
  Agreement Agree(std::int64_t last_taken);

  // Whether it has reached its limits; once it has, until a tenth of it is free.
  bool IsFull(std::int64_t now);

 private:
  void MakeTables();
  std::int64_t Number(std::string_view sql);
  std::int64_t Counter(std::string_view name);
  void SetInfo(std::string_view name, const Value& value);
  Rows Run(std::string_view sql, std::initializer_list<Value> parameters = {}) {
    return db_.ExecuteDirect(sql, {parameters.begin(), parameters.size()});
  }
  template <class Work>
  void InTransaction(Work work);

  const SpoolLimits limits_;
  Connection db_;
  bool is_new_ = false;
  bool full_ = false;
};

}  // namespace kx::tool
