#include "session/transaction.h"

#include <exception>

#include "database/database_error.h"

namespace kx {
namespace {

constexpr int kAttempts = 12;
constexpr std::int16_t kPauseBetweenAttempts = 999;

bool Retry(Session& session, void (Connection::*operation)()) {
  for (int attempt = 1;; ++attempt) {
    try {
      (session.connection.*operation)();
      return true;
    } catch (const DatabaseError& error) {
      const bool has_link = session.connection.IsOpen();
      if (error.category() == ErrorCategory::kUnknownOutcome) {
        if (!has_link) throw;
        session.unknown_outcome = error.description();
        return true;
      }
      const bool hopeless = error.category() == ErrorCategory::kTransactionEnded || !has_link ||
                            session.connection.transaction_ended();
      if (hopeless || attempt == kAttempts) return false;
    }
    PauseMilliseconds(session, kPauseBetweenAttempts);
    RunYieldHook();
  }
}

}  // namespace

bool BeginTransaction(Session& session) { return Retry(session, &Connection::Begin); }
bool CommitTransaction(Session& session) { return Retry(session, &Connection::Commit); }
bool RollbackTransaction(Session& session) { return Retry(session, &Connection::Rollback); }

TransactionScope::~TransactionScope() {
  try {
    Rollback();
  } catch (const std::exception&) {
    // Out of memory. The connection still knows of its transaction; the call's boundary rolls it back.
  }
}

bool TransactionScope::Begin() {
  open_ = BeginTransaction(session_);
  return open_;
}

bool TransactionScope::Commit() {
  if (!CommitTransaction(session_)) {
    Rollback();
    return false;
  }
  open_ = false;
  return true;
}

void TransactionScope::Rollback() {
  if (open_) RollbackTransaction(session_);
  open_ = false;
}

}  // namespace kx
