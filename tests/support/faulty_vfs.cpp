#include "tests/support/faulty_vfs.h"

#include <sqlite3.h>

#include <csignal>
#include <filesystem>
#include <new>
#include <string>

namespace kx::test {
namespace {

struct Faults {
  int calls_left = 0;  // 0: none fails
  bool for_good = false;
  std::int64_t space = -1;  // bytes; -1: without end
  bool failed = false;
  bool kills = false;
  bool keeps_synced = false;
  int syncs = 0;

  bool Fail() {
    if (failed && for_good) return true;
    if (calls_left == 0 || --calls_left > 0) return false;
    if (kills) std::raise(SIGKILL);
    return failed = true;
  }
};

Faults faults;
sqlite3_vfs* real_vfs = nullptr;

// A file of the real file system behind SQLite's handle for it.
struct File : sqlite3_file {
  const char* name;
  sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

sqlite3_file* Real(sqlite3_file* file) { return static_cast<File*>(file)->real(); }

// Passes a call on to the real file of the same name.
#define KX_PASS(method) \
  [](sqlite3_file* file, auto... arguments) { return Real(file)->pMethods->method(Real(file), arguments...); }
// The same, unless it is this call's turn to fail.
#define KX_FAIL(method, error)                                                             \
  [](sqlite3_file* file, auto... arguments) {                                              \
    return faults.Fail() ? error : Real(file)->pMethods->method(Real(file), arguments...); \
  }

int Write(sqlite3_file* file, const void* data, int size, sqlite3_int64 offset) {
  sqlite3_file* const real = Real(file);
  const bool fails = faults.Fail();
  if (fails) real->pMethods->xWrite(real, data, size / 2, offset);
  if (fails) return SQLITE_IOERR_WRITE;
  sqlite3_int64 before = 0;
  if (faults.space >= 0 && real->pMethods->xFileSize(real, &before) == SQLITE_OK && offset + size > before) {
    const std::int64_t growth = offset + size - before;
    if (growth > faults.space) {
      faults.failed = true;
      return SQLITE_FULL;
    }
    faults.space -= growth;
  }
  return real->pMethods->xWrite(real, data, size, offset);
}

int Sync(sqlite3_file* file, int flags) {
  if (faults.Fail()) return SQLITE_IOERR_FSYNC;
  ++faults.syncs;
  const int result = Real(file)->pMethods->xSync(Real(file), flags);
  if (faults.keeps_synced) {
    const std::string name = static_cast<File*>(file)->name;
    std::filesystem::copy_file(name, name + ".synced", std::filesystem::copy_options::overwrite_existing);
  }
  return result;
}

const sqlite3_io_methods kMethods = {
    .iVersion = 2,
    .xClose = KX_PASS(xClose),
    .xRead = KX_FAIL(xRead, SQLITE_IOERR_READ),
    .xWrite = Write,
    .xTruncate = KX_FAIL(xTruncate, SQLITE_IOERR_TRUNCATE),
    .xSync = Sync,
    .xFileSize = KX_FAIL(xFileSize, SQLITE_IOERR_FSTAT),
    .xLock = KX_PASS(xLock),
    .xUnlock = KX_PASS(xUnlock),
    .xCheckReservedLock = KX_PASS(xCheckReservedLock),
    .xFileControl = KX_PASS(xFileControl),
    .xSectorSize = KX_PASS(xSectorSize),
    .xDeviceCharacteristics = KX_PASS(xDeviceCharacteristics),
    .xShmMap = KX_FAIL(xShmMap, SQLITE_IOERR_SHMMAP),
    .xShmLock = KX_PASS(xShmLock),
    .xShmBarrier = KX_PASS(xShmBarrier),
    .xShmUnmap = KX_PASS(xShmUnmap),
    .xFetch = nullptr,
    .xUnfetch = nullptr,
};

int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out_flags) {
  file->pMethods = nullptr;
  static_cast<File*>(file)->name = name;
  if (faults.Fail()) return SQLITE_CANTOPEN;
  sqlite3_file* const real = static_cast<File*>(file)->real();
  real->pMethods = nullptr;
  const int result = real_vfs->xOpen(real_vfs, name, real, flags, out_flags);
  if (real->pMethods != nullptr) file->pMethods = &kMethods;
  return result;
}

sqlite3_vfs faulty_vfs;

}  // namespace

FaultyVfs::FaultyVfs() {
  Heal();
  real_vfs = sqlite3_vfs_find(nullptr);
  faulty_vfs = *real_vfs;
  faulty_vfs.zName = "faulty";
  faulty_vfs.pNext = nullptr;
  faulty_vfs.szOsFile += static_cast<int>(sizeof(File));
  faulty_vfs.xOpen = Open;
  sqlite3_vfs_register(&faulty_vfs, 1);
}

FaultyVfs::~FaultyVfs() {
  sqlite3_vfs_register(real_vfs, 1);
  sqlite3_vfs_unregister(&faulty_vfs);
}

void FaultyVfs::FailNth(int n, bool for_good) { faults = {.calls_left = n, .for_good = for_good}; }
void FaultyVfs::KillAtNth(int n) { faults = {.calls_left = n, .kills = true}; }
void FaultyVfs::LeaveSpace(std::int64_t bytes) { faults = {.space = bytes}; }
void FaultyVfs::KeepSyncedAndFailNth(int n) {
  faults = {.calls_left = n, .for_good = true, .keeps_synced = true};
}
int FaultyVfs::syncs() const { return faults.syncs; }
void FaultyVfs::Heal() {
  faults.calls_left = 0, faults.for_good = false, faults.space = -1, faults.keeps_synced = false;
}
bool FaultyVfs::failed() const { return faults.failed; }

}  // namespace kx::test
