#include "fuzz/demo_plant.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "plant/create.h"
#include "session/host.h"

namespace kx::fuzz {
namespace {

// Lends the plant's one engine to a connection, with a savepoint for its transaction.
class LentEngine final : public Engine {
 public:
  explicit LentEngine(Engine& engine) : engine_(engine) {}
  ~LentEngine() override {
    if (in_transaction_) Rollback();
  }

  SqlTarget target() const override { return engine_.target(); }
  Rows Execute(std::string_view sql, std::span<const Value> parameters) override {
    return engine_.Execute(sql, parameters);
  }
  std::int64_t Insert(std::string_view sql, std::span<const Value> parameters, std::string_view table,
                      std::string_view key_column) override {
    return engine_.Insert(sql, parameters, table, key_column);
  }
  void Begin() override {
    engine_.Execute("SAVEPOINT lent", {});
    in_transaction_ = true;
  }
  void Commit() override {
    engine_.Execute("RELEASE lent", {});
    in_transaction_ = false;
  }
  void Rollback() override {
    engine_.Execute("ROLLBACK TO lent", {});
    Commit();
  }
  bool InTransaction() const override { return in_transaction_; }
  bool IsAlive() const override { return true; }

 private:
  Engine& engine_;
  bool in_transaction_ = false;
};

}  // namespace

void Require(bool holds, std::string_view promise) {
  if (holds) return;
  std::fprintf(stderr, "Broken: %.*s\n", static_cast<int>(promise.size()), promise.data());
  std::abort();
}

std::unique_ptr<Engine> DemoPlant::LendEngine() {
  const auto file =
      std::filesystem::temp_directory_path() / ("kxdata7-fuzz-" + std::to_string(getpid()) + ".db");
  const std::string connection = "Provider=SQLite;Data Source=" + file.string();
  tool::CreateDemoPlant({.plant = file.string()}, DateTime(2026, 1, 12, 6));
  auto engine = OpenEngine(ConnectionString::Parse(connection));
  // The file lives on without its name until the process ends.
  for (const char* part : {"", "-wal", "-shm"}) std::filesystem::remove(file.string() + part);
  engine->Begin();
  ProcessHost() = {
      .now = [passed = std::chrono::sys_seconds()]() mutable { return passed += std::chrono::seconds(1); },
      .sleep = [](std::chrono::milliseconds) {},
      .open_engine = [this](const ConnectionString&,
                            const Waiting&) { return std::make_unique<LentEngine>(*engine_); },
  };
  return engine;
}

void DemoPlant::Reset() {
  if (engine_->InTransaction()) engine_->Rollback();
  engine_->Begin();
}

void DemoPlant::Connect(LONG database_type) {
  component.Connect("Provider=SQLite", static_cast<kxdata7::Dialect>(database_type)).OrThrow();
}

}  // namespace kx::fuzz
