#pragma once

#include "session/session.h"

namespace kx {

// Begin, commit and roll back, each tried up to twelve times about a second apart; an operation on a
// transaction that the database has already ended, or over a link that is lost, fails at once. False: given
// up. A commit whose outcome is unknown is no attempt that failed: it is raised as the DatabaseError that
// says so. One that is done on this server and may be lost with it is done, and the session notes what is
// unknown.
bool BeginTransaction(Session& session);
bool CommitTransaction(Session& session);
bool RollbackTransaction(Session& session);

// A transaction that is rolled back when it goes out of scope uncommitted.
class TransactionScope {
 public:
  explicit TransactionScope(Session& session) : session_(session) {}
  TransactionScope(const TransactionScope&) = delete;
  TransactionScope& operator=(const TransactionScope&) = delete;
  ~TransactionScope();

  bool Begin();   // false: none could be begun
  bool Commit();  // false: it could not be committed and is rolled back
  void Rollback();

 private:
  Session& session_;
  bool open_ = false;
};

}  // namespace kx
