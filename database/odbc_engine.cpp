#include "database/odbc_engine.h"

#include <chrono>
#include <optional>
#include <utility>

#include "database/database_error.h"
#include "database/odbc_dbms.h"
#include "database/odbc_handles.h"
#include "database/odbc_statement.h"
#include "database/statement_text.h"
#include "database/text.h"
#include "kxdata7/text.h"

namespace kx {
namespace {

using std::chrono::milliseconds;

// Between two attempts, for the systems that refuse a locked row at once.
constexpr milliseconds kPauseBetweenAttempts{10};
constexpr SQLULEN kConnectSeconds = 15;

SQLPOINTER AttributeValue(SQLULEN value) { return reinterpret_cast<SQLPOINTER>(value); }

struct Environment {
  Environment() { SQLSetEnvAttr(handle.get(), SQL_ATTR_ODBC_VERSION, AttributeValue(SQL_OV_ODBC3), 0); }
  OdbcHandle handle{SQL_HANDLE_ENV, SQL_NULL_HANDLE};
};

bool IsPartOfWord(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// `text` with `secret` hidden where it stands as a word.
std::string Hide(std::string text, const std::string& secret) {
  constexpr std::string_view kHidden = "***";
  for (std::size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at)) {
    const std::size_t end = at + secret.size();
    if ((at > 0 && IsPartOfWord(text[at - 1])) || (end < text.size() && IsPartOfWord(text[end]))) {
      at = end;
    } else {
      text.replace(at, secret.size(), kHidden);
      at += kHidden.size();
    }
  }
  return text;
}

class OdbcEngine final : public Engine {
 public:
  OdbcEngine(const ConnectionString& connection_string, const Waiting& waiting);
  ~OdbcEngine() override;

  void Open(const std::string& connection_text);

  SqlTarget target() const override { return dbms_->target; }
  bool InTransaction() const override { return in_transaction_; }
  bool IsAlive() const override { return !lost_; }
  Deferral deferral() const override {
    return dbms_->deferring_condition.empty() ? Deferral::kNone : Deferral::kByCondition;
  }
  std::string_view DeferringCondition() const override { return dbms_->deferring_condition; }
  std::size_t LongestText() const override { return dbms_->longest_text; }

  Rows Execute(std::string_view sql, std::span<const Value> parameters) override;
  std::int64_t Insert(std::string_view sql, std::span<const Value> parameters, std::string_view table,
                      std::string_view key_column) override;
  void Begin() override;
  void Commit() override;
  void Rollback() override;

 private:
  class BriefLockWait;

  SQLHANDLE link() const { return connection_.get(); }
  // Connects and returns the connection string as the driver completed it.
  std::string Connect(const std::string& text);
  void Disconnect();
  void PrepareSession(const std::string& connection_text, const std::string& completed);
  Rows Run(std::string_view sql, std::span<const Value> parameters);
  void SetManualCommit(bool manual);
  // Returns the warning with which it was done.
  std::optional<OdbcFailure> EndTransaction(SQLSMALLINT how);
  void NoteLinkLoss();
  void RequireLink() const;
  // The error for a failure, once it is noted what that means for the link and the transaction.
  DatabaseError Judge(const OdbcFailure& failure, std::string_view sql = {});
  // Whether the transaction is gone after a statement that failed, by what the session itself says.
  bool LostTransaction();
  std::string HidePasswords(std::string text) const;
  // Execute, for statements of the engine's own.
  Rows ExecuteAny(std::string_view sql, std::span<const Value> parameters);

  const Waiting waiting_;
  std::vector<std::string> passwords_;
  Environment environment_;
  OdbcHandle connection_{SQL_HANDLE_DBC, environment_.handle.get()};
  // For every statement: a driver makes and frees one in the time of a short statement.
  std::optional<OdbcHandle> statement_;
  const Dbms* dbms_ = nullptr;
  bool connected_ = false;
  // The driver's mode. After a transaction it stays until a statement comes that is in none.
  bool manual_commit_ = false;
  bool in_transaction_ = false;
  bool lost_ = false;
};

OdbcEngine::OdbcEngine(const ConnectionString& connection_string, const Waiting& waiting)
    : waiting_(waiting) {
  for (const auto& entry : connection_string.entries()) {
    if ((entry.keyword == "pwd" || entry.keyword == "password") && !entry.value.empty()) {
      passwords_.push_back(entry.value);
    }
  }
}

OdbcEngine::~OdbcEngine() { Disconnect(); }

void OdbcEngine::Disconnect() {
  if (!connected_) return;
  if (manual_commit_) SQLEndTran(SQL_HANDLE_DBC, link(), SQL_ROLLBACK);
  statement_.reset();
  SQLDisconnect(link());
  connected_ = false;
}

std::string OdbcEngine::Connect(const std::string& text) {
  std::u16string wide = kxdata7::ToUtf16(text);
  std::u16string completed(4096, u'\0');
  SQLSMALLINT length = 0;
  connection_.Check(SQLSetConnectAttrW(link(), SQL_ATTR_LOGIN_TIMEOUT, AttributeValue(kConnectSeconds), 0));
  connection_.Check(SQLDriverConnectW(link(), nullptr, ToSqlText(wide), static_cast<SQLSMALLINT>(wide.size()),
                                      ToSqlText(completed), static_cast<SQLSMALLINT>(completed.size()),
                                      &length, SQL_DRIVER_NOPROMPT));
  connected_ = true;
  statement_.emplace(SQL_HANDLE_STMT, link());
  completed.resize(std::min(completed.find(u'\0'), completed.size()));
  return kxdata7::ToUtf8(completed);
}

void OdbcEngine::Open(const std::string& connection_text) {
  try {
    const std::string completed = Connect(connection_text);
    std::u16string name(128, u'\0');
    SQLSMALLINT bytes = 0;
    connection_.Check(SQLGetInfoW(link(), SQL_DBMS_NAME, name.data(),
                                  static_cast<SQLSMALLINT>(name.size() * sizeof(char16_t)), &bytes));
    name.resize(std::min(name.find(u'\0'), name.size()));
    dbms_ = FindDbms(kxdata7::ToUtf8(name));
    if (dbms_ == nullptr) {
      throw DatabaseError("The database system \"" + kxdata7::ToUtf8(name) + "\" is not supported.");
    }
    PrepareSession(connection_text, completed);
  } catch (const OdbcFailure& failure) {
    throw Judge(failure);
  }
}

void OdbcEngine::PrepareSession(const std::string& connection_text, const std::string& completed) {
  if (!dbms_->connect_option.empty()) {
    const auto reports = [&](std::string_view option) {
      return completed.find(";" + std::string(option) + ";") != std::string::npos;
    };
    if (!reports(dbms_->connect_option) && !reports(dbms_->connect_option_default)) {
      Disconnect();
      Connect(connection_text + ";" + std::string(dbms_->connect_option));
    }
  }
  for (const DriverAttribute& attribute : dbms_->attributes) {
    connection_.Check(SQLSetConnectAttrW(link(), attribute.attribute, AttributeValue(attribute.value), 0));
  }
  if (dbms_->statement_timeout > 0) {
    statement_->Check(SQLSetStmtAttrW(statement_->get(), SQL_ATTR_QUERY_TIMEOUT,
                                      AttributeValue(dbms_->statement_timeout), 0));
  }
  if (!dbms_->session_setup.empty()) Run(dbms_->session_setup, {});
}

void OdbcEngine::NoteLinkLoss() {
  SQLUINTEGER dead = SQL_CD_FALSE;
  SQLGetConnectAttrW(link(), SQL_ATTR_CONNECTION_DEAD, &dead, 0, nullptr);
  if (dead == SQL_CD_TRUE) lost_ = true;
  if (lost_) in_transaction_ = false;
}

void OdbcEngine::RequireLink() const {
  if (lost_) throw DatabaseError("The link to the database is lost.", ErrorCategory::kGeneral, 0, "08S01");
}

bool OdbcEngine::LostTransaction() {
  if (dbms_->session_check.empty()) return false;
  try {
    const Rows open = Run(dbms_->session_check, {});
    return open.count() == 1 && open.at(0, 0).ToInt32() == 0;
  } catch (const OdbcFailure& failure) {
    if (IsLinkLoss(*dbms_, failure)) lost_ = true;
    NoteLinkLoss();
    return true;
  }
}

std::string OdbcEngine::HidePasswords(std::string text) const {
  for (const std::string& password : passwords_) text = Hide(std::move(text), password);
  return text;
}

DatabaseError OdbcEngine::Judge(const OdbcFailure& failure, std::string_view sql) {
  if (dbms_ != nullptr && IsLinkLoss(*dbms_, failure)) lost_ = true;
  NoteLinkLoss();
  ErrorCategory category = ErrorCategory::kGeneral;
  const bool ended = dbms_ != nullptr && !lost_ && !sql.empty() && LostTransaction();
  if (dbms_ != nullptr && in_transaction_ && (ended || EndsTransaction(*dbms_, failure))) {
    category = ErrorCategory::kTransactionEnded;
    SQLEndTran(SQL_HANDLE_DBC, link(), SQL_ROLLBACK);
    in_transaction_ = false;
  }
  if (dbms_ != nullptr && IsBusy(*dbms_, failure)) category = ErrorCategory::kBusy;

  DatabaseError error(HidePasswords(failure.text), category, failure.native_code, failure.sqlstate);
  error.set_statement(std::string(sql));
  return error;
}

Rows OdbcEngine::Run(std::string_view sql, std::span<const Value> parameters) {
  OdbcStatement statement(*statement_);
  for (const Value& parameter : parameters) statement.Bind(parameter, *dbms_);
  return statement.Run(sql);
}

// While it lives, the server hardly waits for another session's lock: the waiting is the engine's own.
class OdbcEngine::BriefLockWait {
 public:
  explicit BriefLockWait(OdbcEngine& engine) : engine_(engine) { Set(engine.dbms_->brief_lock_wait); }
  BriefLockWait(const BriefLockWait&) = delete;
  BriefLockWait& operator=(const BriefLockWait&) = delete;
  ~BriefLockWait() {
    try {
      if (!engine_.lost_) Set(engine_.dbms_->usual_lock_wait);
    } catch (...) {
      // Then the link is lost, as the next statement will tell; the one that waited has its own outcome.
    }
  }

 private:
  void Set(std::string_view sql) {
    if (!sql.empty()) engine_.Run(sql, {});
  }

  OdbcEngine& engine_;
};

Rows OdbcEngine::Execute(std::string_view sql, std::span<const Value> parameters) {
  if (!IsOneStatement(sql)) throw NotOneStatementError();
  return ExecuteAny(sql, parameters);
}

Rows OdbcEngine::ExecuteAny(std::string_view sql, std::span<const Value> parameters) {
  RequireLink();
  if (sql.find('\0') != std::string_view::npos) throw NulInStatementError();
  for (const Value& parameter : parameters) {
    const auto* text = std::get_if<std::string>(&parameter.data());
    if (text != nullptr && text->find('\0') != std::string::npos) {
      throw NulInTextError();
    }
  }
  const auto give_up = waiting_.now() + kWaitOutsideTransaction;
  std::optional<BriefLockWait> brief_lock_wait;
  for (bool again = false;; again = true) {  // until then
    try {
      if (!in_transaction_) SetManualCommit(false);
      if (again && !brief_lock_wait) brief_lock_wait.emplace(*this);
      return Run(sql, parameters);
    } catch (const OdbcFailure& failure) {
      const bool was_in_transaction = in_transaction_;
      const DatabaseError error = Judge(failure, sql);
      if (!error.busy() || was_in_transaction || waiting_.now() >= give_up) throw error;
    }
    waiting_.pause(kPauseBetweenAttempts);
  }
}

std::int64_t OdbcEngine::Insert(std::string_view sql, std::span<const Value> parameters,
                                std::string_view table, std::string_view key_column) {
  if (!IsOneStatement(sql)) throw NotOneStatementError();
  std::string insert(dbms_->before_insert);
  insert += sql;
  insert += FillKeyNames(dbms_->after_insert, table, key_column);
  Rows rows = ExecuteAny(insert, parameters);
  if (!dbms_->key_query.empty()) rows = Execute(FillKeyNames(dbms_->key_query, table, key_column), {});
  if (rows.count() != 1) throw DatabaseError("The database gave no key for the new row.");
  return rows.at(0, 0).ToInt32();
}

void OdbcEngine::SetManualCommit(bool manual) {
  if (manual == manual_commit_) return;
  const SQLULEN mode = manual ? SQL_AUTOCOMMIT_OFF : SQL_AUTOCOMMIT_ON;
  connection_.Check(SQLSetConnectAttrW(link(), SQL_ATTR_AUTOCOMMIT, AttributeValue(mode), 0));
  manual_commit_ = manual;
}

void OdbcEngine::Begin() {
  RequireLink();
  if (in_transaction_) throw DatabaseError("A transaction is already open.");
  try {
    SetManualCommit(true);
  } catch (const OdbcFailure& failure) {
    throw Judge(failure);
  }
  in_transaction_ = true;
}

// A driver may report success although the link is gone.
std::optional<OdbcFailure> OdbcEngine::EndTransaction(SQLSMALLINT how) {
  std::optional<OdbcFailure> warning;
  if (how == SQL_COMMIT && !dbms_->commit.empty()) {
    OdbcStatement commit(*statement_);
    commit.Run(dbms_->commit);
    warning = commit.warning();
  } else {
    const SQLRETURN result = SQLEndTran(SQL_HANDLE_DBC, link(), how);
    connection_.Check(result);
    if (result == SQL_SUCCESS_WITH_INFO) warning = connection_.Reason();
  }
  NoteLinkLoss();
  in_transaction_ = false;
  return warning;
}

void OdbcEngine::Commit() {
  RequireLink();
  if (!in_transaction_) throw TransactionEndedError();
  try {
    const auto warning = EndTransaction(SQL_COMMIT);
    if (lost_) throw UnknownOutcomeError();
    if (warning) {
      throw DatabaseError(
          Concat("The transaction is done on this server, but whether a standby has it is unknown: ",
                 HidePasswords(warning->text)),
          ErrorCategory::kUnknownOutcome, warning->native_code, warning->sqlstate);
    }
  } catch (const OdbcFailure& failure) {
    const DatabaseError error = Judge(failure);
    if (lost_) throw UnknownOutcomeError();
    if (in_transaction_ && !(error.busy() && dbms_->commit_can_be_repeated)) {
      SQLEndTran(SQL_HANDLE_DBC, link(), SQL_ROLLBACK);
      in_transaction_ = false;
    }
    throw error;
  }
}

// With the link the transaction is gone, too.
void OdbcEngine::Rollback() {
  if (!in_transaction_) return;
  try {
    EndTransaction(SQL_ROLLBACK);
  } catch (const OdbcFailure& failure) {
    const DatabaseError error = Judge(failure);
    if (!lost_) throw error;
  }
}

}  // namespace

std::unique_ptr<Engine> OpenOdbcEngine(const ConnectionString& connection_string, const Waiting& waiting) {
  auto engine = std::make_unique<OdbcEngine>(connection_string, waiting);
  engine->Open(connection_string.Without("provider"));
  return engine;
}

}  // namespace kx
