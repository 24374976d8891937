#include "database/sqlite_backup.h"

#include <sqlite3.h>

#include <memory>

#include "database/database_error.h"
#include "database/engine.h"

namespace kx {
namespace {

struct HandleCloser {
  void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
};
using Handle = std::unique_ptr<sqlite3, HandleCloser>;

void Check(int result, sqlite3* handle, const std::string& file) {
  if (result == SQLITE_OK) return;
  const char* const text = handle == nullptr ? sqlite3_errstr(result) : sqlite3_errmsg(handle);
  throw DatabaseError("\"" + file + "\": " + text, ErrorCategory::kGeneral, result, "HY000");
}

Handle Open(const std::string& file, int flags) {
  sqlite3* opened = nullptr;
  const int result = sqlite3_open_v2(file.c_str(), &opened, flags | SQLITE_OPEN_EXRESCODE, nullptr);
  Handle handle(opened);
  Check(result, opened, file);
  sqlite3_busy_timeout(opened, static_cast<int>(kWaitOutsideTransaction.count()));
  return handle;
}

void Run(const Handle& handle, const char* sql, const std::string& file) {
  Check(sqlite3_exec(handle.get(), sql, nullptr, nullptr, nullptr), handle.get(), file);
}

}  // namespace

void BackUpSqlite(const std::string& source, const std::string& target,
                  const std::function<void(std::int64_t done, std::int64_t total)>& progress) {
  const Handle from = Open(source, SQLITE_OPEN_READWRITE);
  const Handle to = Open(target, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  // One read transaction for all of it: what others write meanwhile does not make the copying begin anew.
  Run(from, "BEGIN; SELECT count(*) FROM sqlite_schema", source);
  struct Finisher {
    void operator()(sqlite3_backup* backup) const { sqlite3_backup_finish(backup); }
  };
  std::unique_ptr<sqlite3_backup, Finisher> backup(sqlite3_backup_init(to.get(), "main", from.get(), "main"));
  if (backup == nullptr) Check(sqlite3_errcode(to.get()), to.get(), target);
  constexpr int kPages = 1000;  // some milliseconds of work
  int result = SQLITE_OK;
  while (result == SQLITE_OK) {
    result = sqlite3_backup_step(backup.get(), kPages);
    const std::int64_t total = sqlite3_backup_pagecount(backup.get());
    if (result == SQLITE_OK || result == SQLITE_DONE)
      progress(total - sqlite3_backup_remaining(backup.get()), total);
  }
  Check(sqlite3_backup_finish(backup.release()), to.get(), target);
}

}  // namespace kx
