#include <new>

#include "com/platform.h"

namespace kx::com {

std::filesystem::path OwnFile() {
  HMODULE module = nullptr;
  constexpr DWORD kOfThisCode =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (!GetModuleHandleExW(kOfThisCode, reinterpret_cast<LPCWSTR>(&OwnFile), &module)) return {};
  std::wstring file(MAX_PATH, L'\0');
  for (;;) {  // a path has at most 32,767 characters
    const DWORD length = GetModuleFileNameW(module, file.data(), static_cast<DWORD>(file.size()));
    if (length < file.size()) return file.substr(0, length);
    file.resize(file.size() * 2);  // it was cut
  }
}

void DispatchWindowMessages() {
  MSG message;
  // A window that posts to itself must not hold up the wait for ever.
  constexpr int kMostMessages = 1000;
  for (int left = kMostMessages; left > 0 && PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE); --left) {
    if (message.message == WM_QUIT) {
      // The client's own loop is to end by it.
      PostQuitMessage(static_cast<int>(message.wParam));
      return;
    }
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
}

bool HasTypeLibraries() { return true; }

HRESULT FindTypeInfo(REFGUID guid, ITypeInfo** info) noexcept {
  *info = nullptr;
  try {
    kxdata7::ComPtr<ITypeLib> library;
    const HRESULT loaded = LoadTypeLibEx(OwnFile().c_str(), REGKIND_NONE, library.out());
    return FAILED(loaded) ? loaded : library->GetTypeInfoOfGuid(guid, info);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace kx::com
