#include "inputs/spool.h"

#include <algorithm>
#include <array>
#include <random>
#include <set>

#include "database/text.h"
#include "plant/plant.h"
#include "plant/platform.h"

namespace kx::tool {
namespace {

constexpr std::string_view kName = "name";
constexpr std::string_view kLast = "last";      // the last batch that was put in
constexpr std::string_view kTaken = "taken";    // the last batch that the plant is known to have taken
constexpr std::string_view kOpened = "opened";  // `last` at the opening, until the plant has agreed

constexpr std::array kTables = {
    "create table if not exists INFO (NAME text primary key, INFO_VALUE text)",
    // ARRIVED is in seconds since 1970.
    "create table if not exists EVENT (ROW_ID integer primary key, BATCH integer, MACHINE_ID integer, "
    "EVENT_TIME datetime, TYPE_CODE integer, TIME_CODE integer, COMMAND_NUMBER integer, PARAM text, "
    "ARRIVED integer)",
    "create index if not exists EVENT_BATCH on EVENT (BATCH)",
    // What came without an event gives way to what comes later.
    "create table if not exists STATE (MACHINE_ID integer, BATCH integer, WITH_EVENT integer, "
    "STATE_TEXT text, primary key (MACHINE_ID, BATCH)) without rowid",
    "create table if not exists SOURCE (MACHINE_ID integer primary key, KIND text, ADDRESS text, "
    "MAPPING text)",
};

constexpr std::int64_t kMostBatches = 2'000'000'000;  // the plant keeps their numbers in 32 bits

std::string NewName() {
  std::random_device random;
  return Concat("spool-", random(), "-", random());
}

std::string_view NameOf(Spool::Loss loss) {
  return loss == Spool::Loss::kRefused ? "refused" : "unheard seconds";
}

}  // namespace

Spool::Spool(const std::filesystem::path& file, const SpoolLimits& limits) : limits_(limits) {
  db_.Open(Concat(FileConnectionString(ToText(file)),
                  ";Mode=ReadWriteCreate;Synchronous=Full;Busy Timeout=", kWaitOutsideTransaction.count()));
  InTransaction([&] {
    MakeTables();
    const std::int64_t last = Counter(kLast);
    if (Number("select count(*) from INFO where NAME = 'opened'") == 0) SetInfo(kOpened, last);
    if (last < kMostBatches || CountEvents() > 0) return;
    for (const char* table : {"INFO", "STATE"}) Run(Concat("delete from ", table));
    MakeTables();
  });
}

void Spool::MakeTables() {
  for (const char* const table : kTables) Run(table);
  if (Run("select INFO_VALUE from INFO where NAME = ?", {kName}).count() != 0) return;
  is_new_ = true;
  SetInfo(kName, NewName());
}

template <class Work>
void Spool::InTransaction(Work work) {
  db_.Begin();
  try {
    work();
    db_.Commit();
  } catch (...) {
    db_.Rollback();
    throw;
  }
}

std::string Spool::Name() {
  return Run("select INFO_VALUE from INFO where NAME = ?", {kName}).at(0, 0).ToText();
}

std::int64_t Spool::Number(std::string_view sql) {
  const Rows rows = Run(sql);
  return rows.count() == 0 || rows.at(0, 0).IsNull() ? 0 : std::get<std::int64_t>(rows.at(0, 0).data());
}

std::int64_t Spool::Counter(std::string_view name) {
  return Number(Concat("select cast(INFO_VALUE as integer) from INFO where NAME = '", name, "'"));
}

void Spool::SetInfo(std::string_view name, const Value& value) {
  Run("insert or replace into INFO (NAME, INFO_VALUE) values (?, ?)", {name, value});
}

void Spool::Put(const SpoolBatch& batch, std::int64_t now) {
  InTransaction([&] {
    const std::int64_t number = Counter(kLast) + 1;
    std::set<std::int32_t> with_events;
    for (const auto& [machine_id, event] : batch.events) {
      with_events.insert(machine_id);
      Run("insert into EVENT (BATCH, MACHINE_ID, EVENT_TIME, TYPE_CODE, TIME_CODE, COMMAND_NUMBER, PARAM, "
          "ARRIVED) values (?, ?, ?, ?, ?, ?, ?, ?)",
          {number, machine_id, event.time, event.event.type_code, event.event.time_code,
           event.event.command_number, event.param, now});
    }
    for (const auto& [machine_id, state] : batch.states) {
      Run("delete from STATE where MACHINE_ID = ? and WITH_EVENT = 0", {machine_id});
      Run("insert into STATE (MACHINE_ID, BATCH, WITH_EVENT, STATE_TEXT) values (?, ?, ?, ?)",
          {machine_id, number, with_events.contains(machine_id) ? 1 : 0, state});
    }
    SetInfo(kLast, number);
  });
}

WaitingBatch Spool::Next(std::size_t events) {
  WaitingBatch next;
  const std::int64_t taken = next.behind = Counter(kTaken);
  const auto limit = static_cast<std::int64_t>(events);
  const Rows last = Run(
      "select max(BATCH), count(*) from (select BATCH from EVENT where BATCH > ? order by ROW_ID limit ?)",
      {taken, limit});
  next.number = last.at(0, 0).ToInt32Or(0);
  if (last.at(0, 1).ToInt32() < limit) {
    // All events, and with them the states that came without one.
    next.number = std::max(next.number, Number("select max(BATCH) from STATE"));
  }
  if (next.number <= taken) return {};
  const Rows rows =
      Run("select MACHINE_ID, EVENT_TIME, TYPE_CODE, TIME_CODE, COMMAND_NUMBER, PARAM from EVENT "
          "where BATCH > ? and BATCH <= ? order by ROW_ID",
          {taken, next.number});
  for (std::size_t i = 0; i < rows.count(); ++i) {
    const auto number = [&](std::size_t column) { return rows.at(i, column).ToInt32(); };
    const NamedEvent event{number(2), number(3), number(4)};
    next.events.push_back({number(0), {rows.at(i, 1).ToDateTime(), event, rows.at(i, 5).ToText()}});
  }
  const Rows states = Run(
      "select MACHINE_ID, STATE_TEXT from STATE where BATCH > ? and BATCH <= ? order by MACHINE_ID, BATCH",
      {taken, next.number});
  for (std::size_t i = 0; i < states.count(); ++i)
    next.states[states.at(i, 0).ToInt32()] = states.at(i, 1).ToText();
  return next;
}

void Spool::Forget(std::int64_t number) {
  InTransaction([&] {
    Run("delete from EVENT where BATCH <= ?", {number});
    Run("delete from STATE where BATCH <= ? and BATCH < (select max(s.BATCH) from STATE s where "
        "s.MACHINE_ID = STATE.MACHINE_ID)",
        {number});
    SetInfo(kTaken, number);
  });
}

// They are put behind the others and taken from the front.
std::int64_t Spool::CountEvents() { return Number("select max(ROW_ID) - min(ROW_ID) + 1 from EVENT"); }

void Spool::Count(Loss loss, std::int64_t more) { SetInfo(NameOf(loss), Counted(loss) + more); }

std::int64_t Spool::Counted(Loss loss) { return Counter(NameOf(loss)); }

std::optional<NamedValues> Spool::State(std::int32_t machine_id, bool waiting) {
  const Rows rows =
      Run("select STATE_TEXT from STATE where MACHINE_ID = ? and BATCH > ? order by BATCH desc limit 1",
          {machine_id, waiting ? Counter(kTaken) : -1});
  if (rows.count() == 0) return std::nullopt;
  return ParseNamedValues(rows.at(0, 0).ToText());
}

std::vector<InputSource> Spool::Sources() {
  return SourcesOf(Run("select MACHINE_ID, KIND, ADDRESS, MAPPING from SOURCE order by MACHINE_ID"));
}

void Spool::KeepSources(const std::vector<InputSource>& sources) {
  InTransaction([&] {
    Run("delete from SOURCE");
    for (const InputSource& source : sources) {
      Run("insert into SOURCE (MACHINE_ID, KIND, ADDRESS, MAPPING) values (?, ?, ?, ?)",
          {source.machine_id, source.kind, source.address, NamedValuesText(source.mapping)});
    }
  });
}

Spool::Agreement Spool::Agree(std::int64_t last_taken) {
  auto agreement = Agreement::kSame;
  InTransaction([&] {
    const std::int64_t opened = Counter(kOpened);
    const std::int64_t taken = Counter(kTaken);
    if (last_taken > opened) {
      agreement = Agreement::kSpoolIsOlder;
      SetInfo(kName, NewName());
    } else if (last_taken < taken) {
      agreement = Agreement::kPlantIsOlder;
    }
    const std::int64_t gone = std::max(taken, std::min(last_taken, opened));
    Run("delete from EVENT where BATCH <= ?", {gone});
    SetInfo(kTaken, gone);
    Run("delete from INFO where NAME = ?", {kOpened});
  });
  return agreement;
}

bool Spool::IsFull(std::int64_t now) {
  const auto pragma = [&](const char* name) { return Number(Concat("select * from pragma_", name)); };
  const std::int64_t bytes = (pragma("page_count") - pragma("freelist_count")) * pragma("page_size");
  const std::int64_t oldest = Number("select ARRIVED from EVENT order by ROW_ID limit 1");
  const std::int64_t age = oldest == 0 ? 0 : now - oldest;
  const auto reaches = [&](std::int64_t value, std::int64_t limit) {
    return value >= (full_ ? limit - limit / 10 : limit);
  };
  full_ = reaches(bytes, limits_.bytes) || reaches(age, limits_.days * 86'400);
  return full_;
}

}  // namespace kx::tool
