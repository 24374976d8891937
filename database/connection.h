#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "database/engine.h"
#include "database/statement_translator.h"

namespace kx {

// A column of a row and its value.
struct ColumnValue {
  std::string_view column;
  Value value;
};

// One connection to a plant database: closed, opened, closed again. Statements come in one of the three
// dialects and reach the engine in its own SQL. Raises DatabaseError; on a closed connection every operation
// but Close says so.
class Connection {
 public:
  explicit Connection(EngineOpener opener = OpenEngine, Waiting waiting = {})
      : opener_(std::move(opener)), waiting_(std::move(waiting)) {}

  void Open(std::string_view connection_string);
  void Close() noexcept;  // rolls an open transaction back
  // Open, and the link not known to be lost.
  bool IsOpen() const { return engine_ != nullptr && engine_->IsAlive(); }

  // Runs one statement of a dialect, translated when the engine does not speak it.
  Rows Execute(std::string_view sql) { return Execute(sql, &Engine::Execute); }
  // The same outside a transaction for a statement that ends in a condition. When `others`, a question for
  // one value, has an answer, its commit may reach the disk together with the next one, where that saves a
  // wait.
  void ExecuteDeferred(std::string_view sql, std::string_view others);

  // Runs one statement in the engine's own SQL; every `?` takes the next parameter.
  Rows ExecuteDirect(std::string_view sql, std::span<const Value> parameters = {});
  // Runs an INSERT of one row likewise and returns the row's new key.
  std::int64_t InsertDirect(std::string_view sql, std::span<const Value> parameters, std::string_view table,
                            std::string_view key_column);

  // Rows by their key, values as parameters: table T_SFC_X has the key X_ID.
  std::int64_t InsertRow(std::string_view table, std::span<const ColumnValue> columns);  // the new key
  // False: there is no row with this key.
  bool UpdateRow(std::string_view table, std::span<const ColumnValue> columns, const Value& key);

  // A transaction that the engine ended by itself stays "in transaction" here, and every statement and the
  // commit fail at once, until it is rolled back. A roll back with nothing open succeeds, a commit does not.
  void Begin();
  void Commit();
  void Rollback();
  bool in_transaction() const { return in_transaction_; }
  bool transaction_ended() const { return in_transaction_ && !engine().InTransaction(); }

  // This link's writes wait for few others; for who works the queue off.
  void GoAhead(bool ahead) {
    if (engine_ != nullptr) engine_->GoAhead(ahead);
  }

  SqlTarget target() const { return engine().target(); }
  std::size_t LongestText() const { return engine().LongestText(); }

 private:
  Rows Execute(std::string_view sql, Rows (Engine::*run)(std::string_view, std::span<const Value>));
  Engine& engine() const;
  // The engine, ready for a statement.
  Engine& ReadyEngine() const;

  EngineOpener opener_;
  Waiting waiting_;
  std::unique_ptr<Engine> engine_;
  StatementTranslator translator_;
  bool in_transaction_ = false;
};

}  // namespace kx
