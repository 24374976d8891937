#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "database/connection_string.h"
#include "database/value.h"

namespace kx {

// The names of a result's columns. Copies share them, since a statement names the same ones each time it
// runs.
class ColumnNames {
 public:
  ColumnNames() = default;
  // Needs no memory when there are no names: a transaction that has begun must not fail over its columns.
  ColumnNames(std::vector<std::string> names) {
    if (!names.empty()) names_ = std::make_shared<const std::vector<std::string>>(std::move(names));
  }

  bool empty() const { return all().empty(); }
  std::size_t size() const { return all().size(); }
  const std::string& operator[](std::size_t column) const { return all()[column]; }
  auto begin() const { return all().begin(); }
  auto end() const { return all().end(); }

  friend bool operator==(const ColumnNames& a, const ColumnNames& b) {
    return std::ranges::equal(a.all(), b.all());
  }

 private:
  std::span<const std::string> all() const {
    return names_ == nullptr ? std::span<const std::string>() : std::span<const std::string>(*names_);
  }

  std::shared_ptr<const std::vector<std::string>> names_;
};

// What a statement returned, fetched whole: the system's statements return a handful of rows.
struct Rows {
  ColumnNames columns;
  std::vector<Value> values;  // row after row, columns.size() values each
  std::int64_t affected = 0;  // rows changed by a writing statement

  std::size_t count() const { return columns.empty() ? 0 : values.size() / columns.size(); }
  const Value& at(std::size_t row, std::size_t column) const { return values[row * columns.size() + column]; }
};

// The SQL that an engine understands.
enum class SqlTarget {
  kNative,  // the dialect that the component writes, untouched
  kSqlite,
  kPostgres,
};

// How long a statement outside a transaction waits for another session's lock: as long as twelve attempts to
// begin a transaction would take.
constexpr std::chrono::milliseconds kWaitOutsideTransaction{12'000};

// How an engine waits between its attempts while another session is in the way: by the clock, in pieces that
// keep the process responsive. Nothing of it throws: it is called from within the engines' own code.
struct Waiting {
  std::function<std::chrono::steady_clock::time_point()> now = &std::chrono::steady_clock::now;
  // Waits so long at most.
  std::function<void(std::chrono::milliseconds)> pause = [](std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
  };
  // How long one statement waits for its turn to write, before it asks for the lock.
  std::chrono::milliseconds longest_turn{200};
};

// One open link to a database: the seam between the component and the engines, and the place where tests
// inject faults and count statements. Every operation reports failure by DatabaseError. Closed by its
// destructor. Used by one thread at a time.
class Engine {
 public:
  virtual ~Engine() = default;

  virtual SqlTarget target() const = 0;

  // Runs one statement in the engine's own SQL; every `?` takes the next parameter.
  virtual Rows Execute(std::string_view sql, std::span<const Value> parameters) = 0;

  // How a commit may be left to the next one, so that it does not wait for the disk by itself.
  enum class Deferral {
    kNone,
    kByCall,       // by ExecuteDeferred
    kByCondition,  // by an expression that is true, in the statement's own condition
  };
  virtual Deferral deferral() const { return Deferral::kNone; }
  virtual std::string_view DeferringCondition() const { return {}; }

  // Runs a statement outside a transaction whose commit may reach the disk together with the next one. A loss
  // of power before that undoes it, and nothing older; it never undoes more than one such statement.
  virtual Rows ExecuteDeferred(std::string_view sql, std::span<const Value> parameters) {
    return Execute(sql, parameters);
  }

  // Runs `sql`, an INSERT of one row into `table`, and returns the key that the database gave the row;
  // `key_column` is the key's name.
  virtual std::int64_t Insert(std::string_view sql, std::span<const Value> parameters, std::string_view table,
                              std::string_view key_column) = 0;

  virtual void Begin() = 0;
  virtual void Commit() = 0;
  virtual void Rollback() = 0;

  // Where writers wait in line: whether this link's wait for two or three others at most.
  virtual void GoAhead(bool /*ahead*/) {}

  // Whether a transaction is open in the database; false, too, when the engine ended it by itself.
  virtual bool InTransaction() const = 0;

  // False once the link is known to be lost. Asks nothing of the server.
  virtual bool IsAlive() const = 0;

  // How many UTF-16 units of text the engine can write everywhere that a text may have to go.
  virtual std::size_t LongestText() const { return std::string_view::npos; }
};

using EngineOpener = std::function<std::unique_ptr<Engine>(const ConnectionString&, const Waiting&)>;

// Opens the engine that the connection string names: SQLite for `Provider=SQLite`, ODBC for everything else.
std::unique_ptr<Engine> OpenEngine(const ConnectionString& connection_string, const Waiting& waiting = {});

}  // namespace kx
