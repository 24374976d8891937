#include "database/sqlite_engine.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <new>
#include <optional>
#include <unordered_map>

#include "database/ascii.h"
#include "database/database_error.h"
#include "database/numeric_text.h"
#include "database/write_turns.h"

namespace kx {
namespace {

using std::chrono::milliseconds;

struct Options {
  std::string file;
  int open_flags = SQLITE_OPEN_READWRITE;
  milliseconds busy_timeout{200};
  bool synchronous = true;  // a commit waits for the disk
};

[[noreturn]] void ThrowBadValue(const ConnectionString::Entry& entry) {
  throw DatabaseError("The connection string has no valid value for \"" + entry.keyword + "\".");
}

milliseconds ParseTimeout(const ConnectionString::Entry& entry) {
  const auto number = ParseNumericText(entry.value);
  if (!number || *number < 0 || *number > 3'600'000) ThrowBadValue(entry);
  return milliseconds(static_cast<int>(*number));
}

Options ParseOptions(const ConnectionString& connection_string) {
  Options options;
  for (const auto& entry : connection_string.entries()) {
    if (entry.keyword == "provider") {
      continue;
    } else if (entry.keyword == "data source") {
      options.file = entry.value;
    } else if (entry.keyword == "mode") {
      if (EqualsIgnoringCase(entry.value, "ReadWriteCreate")) {
        options.open_flags |= SQLITE_OPEN_CREATE;
      } else if (EqualsIgnoringCase(entry.value, "ReadOnly")) {
        options.open_flags = SQLITE_OPEN_READONLY;
      } else if (!EqualsIgnoringCase(entry.value, "ReadWrite")) {
        ThrowBadValue(entry);
      }
    } else if (entry.keyword == "busy timeout") {
      options.busy_timeout = ParseTimeout(entry);
    } else if (entry.keyword == "synchronous") {
      options.synchronous = EqualsIgnoringCase(entry.value, "Full");
      if (!options.synchronous && !EqualsIgnoringCase(entry.value, "Normal")) ThrowBadValue(entry);
    } else {
      throw DatabaseError("The connection string has a keyword that SQLite does not know: \"" +
                          entry.keyword + "\".");
    }
  }
  if (options.file.empty()) throw DatabaseError("The connection string names no \"Data Source\".");
  return options;
}

// How the text of a column becomes a value.
enum class TextKind {
  kText,      // declared as a text
  kDateTime,  // declared as a date-time
  kByShape,   // an expression: a date-time when it looks like one
};

struct StatementCloser {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

// A prepared statement and what is known of its columns.
struct Prepared {
  std::unique_ptr<sqlite3_stmt, StatementCloser> handle;
  ColumnNames columns;
  std::vector<TextKind> kinds;
  int reprepared = -1;  // SQLite's count of preparations anew, after which the columns are asked again
};

TextKind KindOf(const char* declared_type) {
  if (declared_type == nullptr) return TextKind::kByShape;
  return EqualsIgnoringCase(declared_type, "DATETIME") ? TextKind::kDateTime : TextKind::kText;
}

class SqliteEngine final : public Engine {
 public:
  SqliteEngine(const Options& options, const Waiting& waiting)
      : options_(options), waiting_(waiting), turns_(IsReadOnly() ? std::string() : options.file) {
    Open(options.file, options.open_flags);
    try {
      if (IsReadOnly()) RequireReadable();
      SetSynchronous(options.synchronous);
      if (!IsReadOnly()) Execute("PRAGMA journal_mode = WAL", {});
    } catch (const DatabaseError& error) {
      throw DatabaseError("cannot open \"" + options.file + "\": " + error.description(), error.category(),
                          error.native_code());
    }
  }

  SqlTarget target() const override { return SqlTarget::kSqlite; }
  bool InTransaction() const override { return sqlite3_get_autocommit(handle_.get()) == 0; }
  bool IsAlive() const override { return true; }

  // The write lock is taken at once, so that a locked database shows here and not in the middle of the work.
  void Begin() override {
    Execute("BEGIN IMMEDIATE", {});
    changes_at_begin_ = sqlite3_total_changes64(handle_.get());
  }
  void Commit() override {
    Execute("COMMIT", {});
    if (sqlite3_total_changes64(handle_.get()) != changes_at_begin_) deferred_ = false;
  }
  Deferral deferral() const override { return options_.synchronous ? Deferral::kByCall : Deferral::kNone; }
  void GoAhead(bool ahead) override {
    ahead_ = ahead;
    if (!ahead && !InTransaction()) turns_.Give();
  }
  Rows ExecuteDeferred(std::string_view sql, std::span<const Value> parameters) override;
  void Rollback() override { Execute("ROLLBACK", {}); }

  Rows Execute(std::string_view sql, std::span<const Value> parameters) override;

  std::int64_t Insert(std::string_view sql, std::span<const Value> parameters, std::string_view /*table*/,
                      std::string_view /*key_column*/) override {
    Execute(sql, parameters);
    return sqlite3_last_insert_rowid(handle_.get());
  }

 private:
  struct HandleCloser {
    void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
  };
  struct TextHash : std::hash<std::string_view> {
    using is_transparent = void;
  };

  bool IsReadOnly() const { return (options_.open_flags & SQLITE_OPEN_READONLY) != 0; }
  void Open(const std::string& name, int flags);
  void RequireReadable();
  static int OnBusy(void* self, int count) noexcept;
  void SetSynchronous(bool synchronous);
  Prepared& Prepare(std::string_view sql);
  void Bind(sqlite3_stmt* statement, std::span<const Value> parameters, std::string_view sql);
  void DescribeColumns(Prepared& prepared);
  Rows Run(Prepared& prepared, std::string_view sql);
  Rows ExecuteNow(std::string_view sql, std::span<const Value> parameters);
  [[noreturn]] void Throw(int result, std::string_view sql, const std::string& prefix = {});

  const Options options_;
  const Waiting waiting_;
  WriteTurns turns_;  // taken for as long as the write lock is held
  bool ahead_ = false;
  std::unique_ptr<sqlite3, HandleCloser> handle_;
  // Statements by their text. Texts are few: their literals come as parameters.
  std::unordered_map<std::string, Prepared, TextHash, std::equal_to<>> statements_;
  bool synchronous_now_ = false;
  // The last commit that changed anything may not be on the disk yet.
  bool deferred_ = false;
  std::int64_t changes_at_begin_ = 0;
  milliseconds busy_limit_{};
  std::chrono::steady_clock::time_point busy_since_;
};

constexpr std::size_t kMostStatements = 500;

void SqliteEngine::Open(const std::string& name, int flags) {
  sqlite3* handle = nullptr;
  const int result =
      sqlite3_open_v2(name.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
  handle_.reset(handle);
  if (result != SQLITE_OK) Throw(result, {}, "cannot open \"" + options_.file + "\": ");
  sqlite3_busy_handler(handle, &SqliteEngine::OnBusy, this);
}

// Who may write nothing beside the file cannot make the journal's index. With no journal there is nobody at
// work either, and the file is read as it stands.
void SqliteEngine::RequireReadable() {
  try {
    Execute("PRAGMA schema_version", {});
  } catch (const DatabaseError& error) {
    const auto code = error.native_code() & 0xFF;
    std::error_code ignored;
    if ((code != SQLITE_CANTOPEN && code != SQLITE_READONLY) ||
        std::filesystem::exists(options_.file + "-wal", ignored))
      throw;
    std::string uri = "file:";
    for (const char c : options_.file) {
      constexpr std::string_view kSpecial = "%?#";
      constexpr std::array<const char*, kSpecial.size()> kEscapes = {"%25", "%3F", "%23"};
      const std::size_t special = kSpecial.find(c);
      special == std::string_view::npos ? uri += c : uri += kEscapes.at(special);
    }
    statements_.clear();
    Open(uri + "?immutable=1", options_.open_flags | SQLITE_OPEN_URI);
  }
}

int SqliteEngine::OnBusy(void* self, int count) noexcept {
  auto& engine = *static_cast<SqliteEngine*>(self);
  const auto now = engine.waiting_.now();
  if (count == 0) engine.busy_since_ = now;
  const auto left = engine.busy_limit_ - (now - engine.busy_since_);
  if (left <= milliseconds::zero()) return 0;
  // Not longer for those who wait long: SQLite keeps no queue, and they would wait longest.
  constexpr milliseconds kPause{1};
  engine.waiting_.pause(kPause);
  return 1;
}

void SqliteEngine::Throw(int result, std::string_view sql, const std::string& prefix) {
  if (result == SQLITE_NOMEM || handle_ == nullptr) throw std::bad_alloc();
  const int primary = result & 0xFF;
  const bool busy = primary == SQLITE_BUSY || primary == SQLITE_LOCKED;
  DatabaseError error(prefix + sqlite3_errmsg(handle_.get()),
                      busy ? ErrorCategory::kBusy : ErrorCategory::kGeneral, result, "HY000");
  error.set_statement(std::string(sql));
  throw error;
}

Prepared& SqliteEngine::Prepare(std::string_view sql) {
  if (const auto found = statements_.find(sql); found != statements_.end()) return found->second;
  if (sql.find('\0') != std::string_view::npos) throw NulInStatementError();

  sqlite3_stmt* handle = nullptr;
  const char* tail = nullptr;
  const int result = sqlite3_prepare_v3(handle_.get(), sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &handle, &tail);
  Prepared prepared;
  prepared.handle.reset(handle);
  if (result != SQLITE_OK) Throw(result, sql);
  const std::string_view rest = sql.substr(static_cast<std::size_t>(tail - sql.data()));
  if (handle == nullptr || rest.find_first_not_of(" \t\r\n;") != std::string_view::npos) {
    throw NotOneStatementError();
  }
  if (statements_.size() >= kMostStatements) statements_.clear();
  return statements_.emplace(sql, std::move(prepared)).first->second;
}

void SqliteEngine::Bind(sqlite3_stmt* statement, std::span<const Value> parameters, std::string_view sql) {
  int index = 0;
  for (const Value& parameter : parameters) {
    ++index;
    // Texts stay alive until the statement is reset, within the same call.
    const auto bind_text = [&](std::string_view text, sqlite3_destructor_type lifetime) {
      if (text.find('\0') != std::string_view::npos) throw NulInTextError();
      return sqlite3_bind_text64(statement, index, text.data(), text.size(), lifetime, SQLITE_UTF8);
    };
    int result = SQLITE_OK;
    if (const auto* number = std::get_if<std::int64_t>(&parameter.data())) {
      result = sqlite3_bind_int64(statement, index, *number);
    } else if (const auto* real = std::get_if<double>(&parameter.data())) {
      result = sqlite3_bind_double(statement, index, *real);
    } else if (const auto* text = std::get_if<std::string>(&parameter.data())) {
      result = bind_text(*text, SQLITE_STATIC);
    } else if (const auto* time = std::get_if<DateTime>(&parameter.data())) {
      result = bind_text(time->ToText(), SQLITE_TRANSIENT);
    } else {
      result = sqlite3_bind_null(statement, index);
    }
    if (result != SQLITE_OK) Throw(result, sql);
  }
}

void SqliteEngine::DescribeColumns(Prepared& prepared) {
  sqlite3_stmt* const statement = prepared.handle.get();
  const int reprepared = sqlite3_stmt_status(statement, SQLITE_STMTSTATUS_REPREPARE, 0);
  if (reprepared == prepared.reprepared) return;
  std::vector<std::string> names;
  prepared.kinds.clear();
  for (int column = 0; column < sqlite3_column_count(statement); ++column) {
    names.emplace_back(sqlite3_column_name(statement, column));
    prepared.kinds.push_back(KindOf(sqlite3_column_decltype(statement, column)));
  }
  prepared.columns = std::move(names);
  prepared.reprepared = reprepared;
}

Value ColumnValue(sqlite3_stmt* statement, int column, TextKind kind) {
  switch (sqlite3_column_type(statement, column)) {
    case SQLITE_NULL: return {};
    case SQLITE_INTEGER: return std::int64_t{sqlite3_column_int64(statement, column)};
    case SQLITE_FLOAT: return sqlite3_column_double(statement, column);
    default: break;
  }
  const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
  if (bytes == nullptr) throw std::bad_alloc();
  const std::string_view text(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
  constexpr std::size_t kFullForm = 19;  // "YYYY-MM-DD HH:MM:SS"
  if (kind == TextKind::kDateTime || (kind == TextKind::kByShape && text.size() == kFullForm)) {
    if (const auto time = DateTime::Parse(text)) return *time;
  }
  return text;
}

Rows SqliteEngine::Run(Prepared& prepared, std::string_view sql) {
  sqlite3_stmt* const statement = prepared.handle.get();
  const auto changes_before = sqlite3_total_changes64(handle_.get());
  Rows rows;
  int result = sqlite3_step(statement);
  if (result == SQLITE_ROW || result == SQLITE_DONE) {
    DescribeColumns(prepared);
    rows.columns = prepared.columns;
  }
  if (result == SQLITE_ROW) rows.values.reserve(rows.columns.size());
  for (; result == SQLITE_ROW; result = sqlite3_step(statement)) {
    for (std::size_t column = 0; column < rows.columns.size(); ++column) {
      rows.values.push_back(ColumnValue(statement, static_cast<int>(column), prepared.kinds[column]));
    }
  }
  if (result != SQLITE_DONE) Throw(result, sql);
  rows.affected = sqlite3_total_changes64(handle_.get()) - changes_before;
  return rows;
}

// SQLite sets it while it compiles the statement.
void SqliteEngine::SetSynchronous(bool synchronous) {
  busy_limit_ = kWaitOutsideTransaction;
  const int result =
      sqlite3_exec(handle_.get(), synchronous ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL",
                   nullptr, nullptr, nullptr);
  if (result != SQLITE_OK) Throw(result, {});
  synchronous_now_ = synchronous;
}

// The journal is written in order and read up to its first gap: the next commit's synchronisation is this
// one's, too.
Rows SqliteEngine::ExecuteDeferred(std::string_view sql, std::span<const Value> parameters) {
  if (!options_.synchronous || deferred_ || InTransaction()) return Execute(sql, parameters);
  SetSynchronous(false);
  Rows rows = ExecuteNow(sql, parameters);
  deferred_ = rows.affected > 0;
  return rows;
}

Rows SqliteEngine::Execute(std::string_view sql, std::span<const Value> parameters) {
  if (synchronous_now_ != options_.synchronous) SetSynchronous(options_.synchronous);
  Rows rows = ExecuteNow(sql, parameters);
  if (rows.affected > 0 && !InTransaction()) deferred_ = false;
  return rows;
}

Rows SqliteEngine::ExecuteNow(std::string_view sql, std::span<const Value> parameters) {
  const bool begins = sql.starts_with("BEGIN");
  busy_limit_ = begins || InTransaction() ? options_.busy_timeout : kWaitOutsideTransaction;
  Prepared& prepared = Prepare(sql);
  struct Reset {
    sqlite3_stmt* statement;
    ~Reset() {
      sqlite3_reset(statement);
      sqlite3_clear_bindings(statement);
    }
  } reset{prepared.handle.get()};
  struct Turn {
    SqliteEngine& engine;
    ~Turn() {
      if (!engine.InTransaction() && (!engine.ahead_ || std::uncaught_exceptions() > 0)) engine.turns_.Give();
    }
  } const turn{*this};
  if (!InTransaction() && sqlite3_stmt_readonly(prepared.handle.get()) == 0) {
    turns_.Take(ahead_, waiting_, std::min(options_.busy_timeout, waiting_.longest_turn));
  }
  Bind(prepared.handle.get(), parameters, sql);
  return Run(prepared, sql);
}

}  // namespace

std::unique_ptr<Engine> OpenSqliteEngine(const ConnectionString& connection_string, const Waiting& waiting) {
  return std::make_unique<SqliteEngine>(ParseOptions(connection_string), waiting);
}

}  // namespace kx
