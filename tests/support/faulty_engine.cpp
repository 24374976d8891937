#include "tests/support/faulty_engine.h"

namespace kx::test {
namespace {

class WatchedEngine : public Engine {
 public:
  WatchedEngine(std::unique_ptr<Engine> engine, EngineWatch& watch)
      : engine_(std::move(engine)), watch_(watch) {}

  SqlTarget target() const override { return engine_->target(); }
  Rows Execute(std::string_view sql, std::span<const Value> parameters) override {
    Pass(EngineCall::kStatement, sql);
    return engine_->Execute(sql, parameters);
  }
  std::int64_t Insert(std::string_view sql, std::span<const Value> parameters, std::string_view table,
                      std::string_view key_column) override {
    Pass(EngineCall::kStatement, sql);
    return engine_->Insert(sql, parameters, table, key_column);
  }
  void Begin() override {
    ++watch_.begins;
    Pass(EngineCall::kBegin, "begin");
    engine_->Begin();
  }
  void Commit() override {
    Pass(EngineCall::kCommit, "commit");
    engine_->Commit();
    ++watch_.commits_done;
    if (watch_.after_commit) watch_.after_commit();
  }
  void Rollback() override {
    Pass(EngineCall::kRollback, "rollback");
    engine_->Rollback();
  }
  bool InTransaction() const override { return engine_->InTransaction(); }
  bool IsAlive() const override { return engine_->IsAlive(); }

 private:
  void Pass(EngineCall call, std::string_view sql) {
    ++watch_.calls;
    if (watch_.before) watch_.before(call, sql);
  }

  std::unique_ptr<Engine> engine_;
  EngineWatch& watch_;
};

}  // namespace

void EngineWatch::FailNth(int n, ErrorCategory category) {
  failed = false;
  failed_sql.clear();
  before = [this, left = n, category](EngineCall, std::string_view sql) mutable {
    if (--left != 0) return;
    failed = true;
    failed_sql = sql;
    throw DatabaseError(kInjected, category);
  };
}

void EngineWatch::FailAll(EngineCall kind, ErrorCategory category) {
  before = [kind, category](EngineCall call, std::string_view) {
    if (call == kind) throw DatabaseError(kInjected, category);
  };
}

EngineOpener WatchedOpener(EngineWatch& watch) {
  return [&watch](const ConnectionString& connection_string) {
    return std::make_unique<WatchedEngine>(OpenEngine(connection_string), watch);
  };
}

}  // namespace kx::test
