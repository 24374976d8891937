#include "tests/support/faulty_engine.h"

namespace kx::test {
namespace {

class WatchedEngine : public Engine {
 public:
  WatchedEngine(std::unique_ptr<Engine> engine, EngineWatch& watch)
      : engine_(std::move(engine)), watch_(watch) {}

  SqlTarget target() const override { return engine_->target(); }
  Rows Execute(std::string_view sql, std::span<const Value> parameters) override {
    Pass(EngineCall::kStatement, sql, parameters);
    return engine_->Execute(sql, parameters);
  }
  void GoAhead(bool ahead) override { engine_->GoAhead(ahead); }
  Deferral deferral() const override { return engine_->deferral(); }
  std::string_view DeferringCondition() const override { return engine_->DeferringCondition(); }
  Rows ExecuteDeferred(std::string_view sql, std::span<const Value> parameters) override {
    Pass(EngineCall::kStatement, sql, parameters, {}, true);
    return engine_->ExecuteDeferred(sql, parameters);
  }
  std::int64_t Insert(std::string_view sql, std::span<const Value> parameters, std::string_view table,
                      std::string_view key_column) override {
    Pass(EngineCall::kStatement, sql, parameters, key_column);
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
    if (lost_) return;  // with the link the transaction is gone
    Pass(EngineCall::kRollback, "rollback");
    engine_->Rollback();
  }
  bool InTransaction() const override { return engine_->InTransaction(); }
  bool IsAlive() const override { return !lost_ && engine_->IsAlive(); }

 private:
  void Pass(EngineCall call, std::string_view sql, std::span<const Value> parameters = {},
            std::string_view key_column = {}, bool deferred = false) {
    ++watch_.calls;
    watch_.parameters = parameters;
    watch_.key_column = key_column;
    watch_.deferred = deferred;
    if (watch_.before && !lost_) watch_.before(call, sql);
    if (watch_.link_lost) {
      lost_ = true;
      watch_.link_lost = false;
      engine_->Rollback();
    }
    if (lost_) throw DatabaseError("The link to the database is lost.", ErrorCategory::kGeneral, 0, "08S01");
  }

  std::unique_ptr<Engine> engine_;
  EngineWatch& watch_;
  bool lost_ = false;
};

}  // namespace

void EngineWatch::AtNth(int n, std::function<void()> action) {
  failed = false;
  failed_sql.clear();
  before = [this, left = n, action = std::move(action)](EngineCall, std::string_view sql) mutable {
    if (--left != 0) return;
    failed = true;
    failed_sql = sql;
    action();
  };
}

void EngineWatch::FailNth(int n, ErrorCategory category) {
  AtNth(n, [category] { throw DatabaseError(kInjected, category); });
}

void EngineWatch::LoseLinkAtNth(int n) {
  AtNth(n, [this] { link_lost = true; });
}

void EngineWatch::FailAll(EngineCall kind, ErrorCategory category) {
  before = [kind, category](EngineCall call, std::string_view) {
    if (call == kind) throw DatabaseError(kInjected, category);
  };
}

EngineOpener WatchedOpener(EngineWatch& watch) {
  return [&watch](const ConnectionString& connection_string, const Waiting& waiting) {
    using std::chrono::milliseconds;
    auto engine =
        OpenEngine(connection_string,
                   watch.clock ? Waiting{watch.clock, waiting.pause, milliseconds::zero()} : Waiting());
    if (watch.after_open) watch.after_open(*engine);
    return std::make_unique<WatchedEngine>(std::move(engine), watch);
  };
}

}  // namespace kx::test
