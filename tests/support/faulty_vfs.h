#pragma once

#include <cstdint>

namespace kx::test {

// The process's default file system for SQLite while it lives, with faults in front of the real one.
// Databases that were opened before it, or that outlive it, are a mistake. One thread at a time.
class FaultyVfs {
 public:
  FaultyVfs();
  FaultyVfs(const FaultyVfs&) = delete;
  FaultyVfs& operator=(const FaultyVfs&) = delete;
  ~FaultyVfs();

  // The n-th read, write, sync, truncation, size query, mapping or opening of a file from now on, counted
  // from 1, fails with SQLite's error for it, and every later one, too, when `for_good`. A failing write
  // writes half.
  void FailNth(int n, bool for_good);
  // The process is killed instead.
  void KillAtNth(int n);
  // The files may grow by so many bytes altogether, then the disk is full.
  void LeaveSpace(std::int64_t bytes);
  // As FailNth for good; until healed, what a file's sync has put on the disk stands in NAME.synced.
  void KeepSyncedAndFailNth(int n);
  int syncs() const;  // since the last of these calls
  void Heal();

  bool failed() const;
};

}  // namespace kx::test
