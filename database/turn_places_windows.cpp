#include <windows.h>

#include <string>

#include "database/turn_places.h"
#include "kxdata7/text.h"

namespace kx {

// Each place is a mutex that is named after the file. Another account's is out of reach.
bool TurnPlaces::Open() noexcept {
  try {
    const std::u16string wide = kxdata7::ToUtf16(path_);
    const HANDLE file = CreateFileW(reinterpret_cast<const wchar_t*>(wide.c_str()), 0,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    BY_HANDLE_FILE_INFORMATION about{};
    const bool known = GetFileInformationByHandle(file, &about) != 0;
    CloseHandle(file);
    for (std::size_t place = 0; known && place < kCount; ++place) {
      std::wstring name = L"Global\\KXData7";
      for (const DWORD part :
           {about.dwVolumeSerialNumber, about.nFileIndexHigh, about.nFileIndexLow, static_cast<DWORD>(place)})
        name += L'-' + std::to_wstring(part);
      places_[place] = CreateMutexW(nullptr, FALSE, name.c_str());
    }
    return known && places_[kTurn] != nullptr && places_[kNext] != nullptr && places_[kLine] != nullptr;
  } catch (const std::exception&) {
    return false;
  }
}

TurnPlaces::~TurnPlaces() {
  for (void* const place : places_) {
    if (place != nullptr) CloseHandle(place);
  }
}

TurnPlaces::Entered TurnPlaces::Enter(Place place, std::chrono::milliseconds time) noexcept {
  if (places_[kLine] == nullptr && !Open()) return Entered::kNever;
  switch (WaitForSingleObject(places_[place], static_cast<DWORD>(time.count()))) {
    case WAIT_OBJECT_0:
    case WAIT_ABANDONED: return Entered::kYes;
    case WAIT_TIMEOUT: return Entered::kNotYet;
    default: return Entered::kNever;
  }
}

void TurnPlaces::Leave(Place place) noexcept { ReleaseMutex(places_[place]); }

}  // namespace kx
