#include <array>
#include <string>
#include <system_error>

#include "KXData7.h"
#include "com/error_info.h"
#include "component/registration.h"

namespace kx {
namespace {

#define KXDATA7_CLASS L"{6D3DC26E-FE47-4582-BD90-5E241A8DBC8B}"
#define KXDATA7_INTERFACE L"{CCB76FB7-FDFA-4D13-B7DC-5809191A4643}"
#define KXDATA7_LIBRARY L"{0E0E8AE5-6B54-4B7B-9C5D-6F3B3F1A7D07}"
#define KXDATA7_PROGID L"KXData7.CKXData7Obj"
#define KXDATA7_TITLE L"Velkaris Machine Data Library 7"

// The keys that are the registration, all that stands below them included. Their parents are everybody's.
constexpr std::array kKeys = {L"CLSID\\" KXDATA7_CLASS, KXDATA7_PROGID, KXDATA7_PROGID L".1",
                              L"TypeLib\\" KXDATA7_LIBRARY, L"Interface\\" KXDATA7_INTERFACE};

// The value of a key, null for its own; `text` null stands for the library's file.
struct Value {
  const wchar_t* key;
  const wchar_t* name;
  const wchar_t* text;
};

constexpr Value kValues[] = {
    {L"CLSID\\" KXDATA7_CLASS, nullptr, KXDATA7_TITLE},
    {L"CLSID\\" KXDATA7_CLASS L"\\InprocServer32", nullptr, nullptr},
    {L"CLSID\\" KXDATA7_CLASS L"\\InprocServer32", L"ThreadingModel", L"Apartment"},
    {L"CLSID\\" KXDATA7_CLASS L"\\ProgID", nullptr, KXDATA7_PROGID L".1"},
    {L"CLSID\\" KXDATA7_CLASS L"\\VersionIndependentProgID", nullptr, KXDATA7_PROGID},
    {L"CLSID\\" KXDATA7_CLASS L"\\TypeLib", nullptr, KXDATA7_LIBRARY},
    {L"CLSID\\" KXDATA7_CLASS L"\\Version", nullptr, L"1.0"},
    {L"CLSID\\" KXDATA7_CLASS L"\\Programmable", nullptr, L""},
    {KXDATA7_PROGID, nullptr, KXDATA7_TITLE},
    {KXDATA7_PROGID L"\\CLSID", nullptr, KXDATA7_CLASS},
    {KXDATA7_PROGID L"\\CurVer", nullptr, KXDATA7_PROGID L".1"},
    {KXDATA7_PROGID L".1", nullptr, KXDATA7_TITLE},
    {KXDATA7_PROGID L".1\\CLSID", nullptr, KXDATA7_CLASS},
    {L"TypeLib\\" KXDATA7_LIBRARY L"\\1.0", nullptr, KXDATA7_TITLE},
    {L"TypeLib\\" KXDATA7_LIBRARY L"\\1.0\\0\\win64", nullptr, nullptr},
    {L"TypeLib\\" KXDATA7_LIBRARY L"\\1.0\\FLAGS", nullptr, L"0"},
    {L"Interface\\" KXDATA7_INTERFACE, nullptr, L"_CKXData7Obj"},
    // The system's marshaler for interfaces that a type library describes.
    {L"Interface\\" KXDATA7_INTERFACE L"\\ProxyStubClsid32", nullptr,
     L"{00020424-0000-0000-C000-000000000046}"},
    {L"Interface\\" KXDATA7_INTERFACE L"\\TypeLib", nullptr, KXDATA7_LIBRARY},
    {L"Interface\\" KXDATA7_INTERFACE L"\\TypeLib", L"Version", L"1.0"},
};

void Require(LSTATUS result, const char* what) {
  if (result != ERROR_SUCCESS) throw std::system_error(result, std::system_category(), what);
}

// A key, made where it is missing.
class Key {
 public:
  Key(HKEY parent, const wchar_t* path) {
    Require(RegCreateKeyExW(parent, path, 0, nullptr, 0, KEY_WRITE, nullptr, &key_, nullptr),
            "cannot write the registration");
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() { RegCloseKey(key_); }

  HKEY get() const { return key_; }
  void Set(const wchar_t* name, const std::wstring& text) const {
    const auto bytes = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
    Require(RegSetValueExW(key_, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), bytes),
            "cannot write the registration");
  }

 private:
  HKEY key_ = nullptr;
};

// Whether the calling thread acts with an administrator's rights, which a user who may ask for them does not
// by itself have.
bool IsAdministrator() {
  SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
  PSID group = nullptr;
  if (!AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0,
                                0, 0, 0, &group)) {
    return false;
  }
  BOOL member = FALSE;
  const bool known = CheckTokenMembership(nullptr, group, &member) != 0;
  FreeSid(group);
  return known && member;
}

constexpr const wchar_t* kClasses = L"Software\\Classes";

void RemoveFrom(HKEY root) {
  for (const wchar_t* key : kKeys) {
    const LSTATUS result = RegDeleteTreeW(root, (std::wstring(kClasses) + L"\\" + key).c_str());
    if (result != ERROR_FILE_NOT_FOUND) Require(result, "cannot remove the registration");
  }
}

}  // namespace

void WriteRegistration(const std::filesystem::path& library) {
  const Key classes(IsAdministrator() ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, kClasses);
  for (const Value& value : kValues) {
    Key(classes.get(), value.key).Set(value.name, value.text == nullptr ? library.native() : value.text);
  }
}

void RemoveRegistration() {
  RemoveFrom(HKEY_CURRENT_USER);
  if (IsAdministrator()) RemoveFrom(HKEY_LOCAL_MACHINE);
}

}  // namespace kx
