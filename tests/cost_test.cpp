// What an event costs: statements, transactions and memory.

#include <gtest/gtest.h>
#include <malloc.h>
#include <sqlite3.h>

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

Cost CostOfNext(Plant& plant) {
  Cost cost;
  plant.host.watch.before = [&](EngineCall call, std::string_view sql) {
    if (call == EngineCall::kStatement) {
      const bool reads = sql.starts_with("select") || sql.starts_with("Select") || sql.starts_with("SELECT");
      ++(reads ? cost.reads : cost.writes);
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
    // A row is added through an empty recordset, or by a batch in SQL Server's dialect.
    const int empty_recordset = database_type == 2 ? 0 : 1;
    EXPECT_EQ(CostOfNext(plant), (Cost{21 + empty_recordset, 5, 1, 28 + empty_recordset}));
    EXPECT_EQ(CostOfNext(plant), (Cost{11, 5, 1, 18}));
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
