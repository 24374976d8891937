// Registers a library for a user without an administrator's rights, whatever rights the caller has:
//
//   as_user DllRegisterServer|DllUnregisterServer LIBRARY
//
// Exit status: 0 done, 1 the library refused, 2 there is no such user here.
#include <windows.h>

#include <cstdio>
#include <cwchar>

namespace {

// Whether the calling thread is one of the administrators.
bool IsAdministrator(PSID administrators) {
  BOOL member = TRUE;
  return !CheckTokenMembership(nullptr, administrators, &member) || member;
}

// Takes the administrators' rights from the calling thread.
bool BecomeUser() {
  BYTE administrators[SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof administrators;
  HANDLE own = nullptr;
  HANDLE restricted = nullptr;
  SID_AND_ATTRIBUTES disabled{administrators, 0};
  return CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size) &&
         OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &own) &&
         CreateRestrictedToken(own, 0, 1, &disabled, 0, nullptr, 0, nullptr, &restricted) &&
         ImpersonateLoggedOnUser(restricted) && !IsAdministrator(administrators);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc != 3) return 2;
  const HMODULE library = LoadLibraryW(argv[2]);
  const bool in = std::wcscmp(argv[1], L"DllRegisterServer") == 0;
  const auto change = reinterpret_cast<HRESULT (*)()>(
      reinterpret_cast<void*>(GetProcAddress(library, in ? "DllRegisterServer" : "DllUnregisterServer")));
  if (change == nullptr || !BecomeUser()) {
    std::printf("error %lu\n", GetLastError());
    return 2;
  }
  const HRESULT result = change();
  if (FAILED(result)) std::printf("the library answered 0x%08lX\n", static_cast<unsigned long>(result));
  return FAILED(result) ? 1 : 0;
}
