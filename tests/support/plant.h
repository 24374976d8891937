#pragma once

#include <KXData7.h>

#include <chrono>
#include <string>
#include <string_view>

#include "session/host.h"
#include "tests/support/com_object.h"
#include "tests/support/faulty_engine.h"
#include "tests/support/plant_database.h"

namespace kx::test {

// The process's host with a clock that only pauses move, and watched engines.
class FakeHost {
 public:
  FakeHost();
  FakeHost(const FakeHost&) = delete;
  FakeHost& operator=(const FakeHost&) = delete;
  ~FakeHost() { ProcessHost() = before_; }

  EngineWatch watch;
  std::chrono::milliseconds paused{0};

 private:
  Host before_ = ProcessHost();
};

using Outcome = kxdata7::Answer;

// The component as a client has it, linked into the test.
struct Component : kxdata7::Client {
  Component() : Client(kxdata7::Library::Linked()) {}
};

// "08:00", "08:00:30", "Tue 08:00" in the week of Monday 2026-01-12 as a full text.
std::string Moment(std::string_view text);

// A plant with three machines, each in the early shift since Monday 06:00 with record number MACHINE_ID, and
// the component connected to it. COMMAND_ID is 100 + type, VELKARIS_IDs are 1000 + id. Shifts from Monday to
// Friday: 1 06-14, 2 14-22, 3 22-06. Users anna, bert (shift 3), Zoë. Jobs J1 (parts P2, P1 in this order)
// and J2 (none). Operations O10, O20. Downtime codes D0 (machine, locks cycles), D1 (user), D2 (both). Scrap
// codes 17, and 99 as the default.
class Plant {
 public:
  explicit Plant(int database_type, DatabaseKind kind = TestedDatabase());

  // Queues the events of a script, separated by ";": moment, "#n" for another machine than 1, the command's
  // name, "start", "end" or "both" (not for good and scrap), the parameter.
  void Queue(std::string_view script);
  void QueueRow(std::string_view moment, int machine, int command, int time_code, std::string_view param);
  // Works the queue off; every event must be applied.
  void Run(std::string_view script);
  void ProcessAll();
  // More machines like the first, up to number `last`.
  void AddMachines(int last);

  // Rows as "a|b;c|d", NULL as "-".
  std::string Query(std::string_view sql);
  double Number(std::string_view sql);
  void Execute(std::string_view sql) { database.Run(sql); }
  // Every row of every table that the component writes. The keys that the database gave are shown by their
  // place among the table's rows: a server's counters keep gaps from what was rolled back.
  std::string Snapshot();
  // What must hold at any time, as a list of breaches: one open record a machine, the one it points at; each
  // record starts where its predecessor stopped; at most one running event a machine and command.
  std::string Breaches();

  void Save() { database.Save(); }
  void Restore() { database.Restore(); }
  // Connects the component anew.
  void Connect();
  // Ends the component's link just before its n-th call from now on; on a server it is the server that ends
  // it.
  void LoseLinkAtNth(int n);
  std::string connection_string() const { return database.connection_string(); }

  FakeHost host;
  PlantDatabase database;
  Connection& db = database.link;
  Component component;

 private:
  int database_type_;
};

}  // namespace kx::test
