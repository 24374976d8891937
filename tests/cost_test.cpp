// What an event costs: statements, transactions and memory.

#include <gtest/gtest.h>
#include <malloc.h>
#include <sqlite3.h>

#include <algorithm>
#include <set>

#include "database/text.h"
#include "tests/support/handler_cases.h"
#include "tests/support/plant.h"

namespace kx::test {
namespace {

struct Cost {
  int reads = 0;
  int writes = 0;
  int transactions = 0;
  int calls = 0;
  friend bool operator==(const Cost&, const Cost&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Cost& cost) {
    return out << cost.reads << " reads, " << cost.writes << " writes, " << cost.transactions
               << " transactions, " << cost.calls << " calls";
  }
};

bool IsRead(std::string_view sql) {
  return sql.starts_with("select") || sql.starts_with("Select") || sql.starts_with("SELECT");
}

constexpr std::string_view kChangingTables[] = {
    "MACHINE", "MACHINE_DATA", "DT_PER_MACHINE_DATA", "SCRAP_PER_MACHINE_DATA", "MACHINE_EVENT", "MDC_LOG"};

Cost CostOfNext(Plant& plant) {
  Cost cost;
  plant.host.watch.before = [&](EngineCall call, std::string_view sql) {
    if (call == EngineCall::kStatement) {
      ++(IsRead(sql) ? cost.reads : cost.writes);
    }
    if (call == EngineCall::kBegin) ++cost.transactions;
    ++cost.calls;
  };
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  plant.host.watch.Heal();
  return cost;
}

// The figures of docs/architecture.md.
TEST(CostTest, TraceOfACycle) {
  for (const int database_type : {0, 1, 2}) {
    SCOPED_TRACE(database_type);
    Plant plant(database_type);
    plant.Run("08:00 part start P1");
    plant.Queue("08:10 cycle start; 08:20 cycle end");
    EXPECT_EQ(CostOfNext(plant), (Cost{12, 5, 1, 19}));
    EXPECT_EQ(CostOfNext(plant), (Cost{6, 5, 1, 13}));
  }
}

// A question is not sent again while its answer cannot have changed: before the component's next write, and
// within the event when it is about master data.
TEST(CostTest, NothingIsAskedTwice) {
  for (const HandlerCase& handler : kHandlers) {
    SCOPED_TRACE(handler.event);
    Plant plant(0, DatabaseKind::kSqlite);
    Prepare(plant, handler);
    std::set<std::string> ever, since_write;
    plant.host.watch.before = [&](EngineCall, std::string_view sql) {
      std::string question(sql);
      for (const Value& parameter : plant.host.watch.parameters)
        Append(question, "|", parameter.ToTextOr("-"));
      if (!IsRead(sql)) return since_write.clear();
      EXPECT_TRUE(since_write.insert(question).second) << question;
      const bool changes = std::ranges::any_of(kChangingTables, [&](std::string_view table) {
        return Concat(question, " ").find(Concat("T_SFC_", table, " ")) != std::string::npos;
      });
      EXPECT_TRUE(ever.insert(question).second || changes) << question;
    };
    EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  }
}

#if !defined(__SANITIZE_ADDRESS__)
// Ten thousand events by one object: after the first thousand nothing of the component's grows. SQLite's own
// memory, mostly its page cache, has a limit of its own and is not counted.
TEST(CostTest, MemoryStaysFlat) {
  Plant plant(0);
  plant.Run("06:10 part start P1");
  const auto own_memory = [] {
    return static_cast<std::int64_t>(mallinfo2().uordblks) - sqlite3_memory_used();
  };
  const auto run = [&](int cycles) {
    plant.db.Begin();
    for (int i = 0; i < cycles; ++i) {
      plant.QueueRow(Moment("07:00"), 1, 109, 0, "");
      plant.QueueRow(Moment("07:01"), 1, 109, 1, "");
    }
    plant.db.Commit();
    plant.ProcessAll();
  };
  run(500);
  const std::int64_t before = own_memory();
  run(4500);
  const std::int64_t growth = own_memory() - before;
  RecordProperty("growth_in_bytes", std::to_string(growth));
  EXPECT_LT(growth, 16 * 1024);
}
#endif

}  // namespace
}  // namespace kx::test
