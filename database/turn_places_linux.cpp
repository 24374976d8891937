#include <sys/sem.h>
#include <sys/stat.h>

#include <cerrno>
#include <span>

#include "database/turn_places.h"

namespace kx {
namespace {

// Each place is a semaphore, 0 when it is free. Takes all steps at once, or none.
bool Take(int places, std::span<sembuf> steps, std::chrono::milliseconds time = {}) {
  for (sembuf& step : steps) {
    step.sem_flg = static_cast<short>(SEM_UNDO | (time.count() == 0 ? IPC_NOWAIT : 0));
  }
  const timespec limit{0, std::chrono::nanoseconds(time).count()};
  return semtimedop(places, steps.data(), steps.size(), &limit) == 0;
}

}  // namespace

// Whoever may write the file may enter. Files that happen to have the same key share their places.
bool TurnPlaces::Open() noexcept {
  struct stat file {};
  if (stat(path_.c_str(), &file) != 0 || !S_ISREG(file.st_mode)) return false;
  const auto key = ((file.st_ino ^ (file.st_dev << 20U)) * 2'654'435'761U & 0x7FFF'FFFFU) | 1U;
  places_ = semget(static_cast<key_t>(key), kCount, static_cast<int>(file.st_mode & 0666U) | IPC_CREAT);
  semid_ds set{};
  if (places_ != -1 && semctl(places_, 0, IPC_STAT, &set) == 0 && set.sem_perm.gid != file.st_gid) {
    set.sem_perm.gid = file.st_gid;
    semctl(places_, 0, IPC_SET, &set);
  }
  return places_ != -1;
}

// Who finds all of them free takes them away. Somebody who comes at this moment makes them anew.
TurnPlaces::~TurnPlaces() {
  std::array<sembuf, kCount> steps{{{kTurn, 0, 0}, {kNext, 0, 0}, {kLine, 0, 0}}};
  if (places_ != -1 && Take(places_, steps)) semctl(places_, 0, IPC_RMID);
}

TurnPlaces::Entered TurnPlaces::Enter(Place place, std::chrono::milliseconds time) noexcept {
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (places_ == -1 && !Open()) return Entered::kNever;
    std::array<sembuf, 2> steps{{{place, 0, 0}, {place, 1, 0}}};
    if (Take(places_, steps, time)) return Entered::kYes;
    if (errno == EAGAIN || errno == EINTR) return Entered::kNotYet;
    places_ = -1;  // taken away, for one
  }
  return Entered::kNever;
}

void TurnPlaces::Leave(Place place) noexcept {
  std::array<sembuf, 1> steps{{{place, -1, 0}}};
  Take(places_, steps);
}

}  // namespace kx
