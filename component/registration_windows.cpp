#include <string>
#include <system_error>
#include <vector>

#include "KXData7.h"
#include "com/error_info.h"
#include "component/registration.h"

namespace kx {
namespace {

// A value of a key; without a name the key's own.
struct Value {
  std::wstring key;
  const wchar_t* name;
  std::wstring text;
};

// The keys are named below Software\Classes.
struct Registration {
  explicit Registration(const std::wstring& library) {
    const std::wstring title = L"Velkaris Machine Data Library 7";
    const std::wstring class_id = kxdata7::ToRegistryText(CLSID_CKXData7Obj);
    const std::wstring library_id = kxdata7::ToRegistryText(LIBID_KXData7);
    const std::wstring prog_id(com::kProgId.begin(), com::kProgId.end());
    const std::wstring versioned_prog_id = prog_id + L".1";
    const std::wstring class_key = L"CLSID\\" + class_id;
    const std::wstring library_key = L"TypeLib\\" + library_id;
    const std::wstring interface_key = L"Interface\\" + kxdata7::ToRegistryText(IID__CKXData7Obj);
    keys = {class_key, prog_id, versioned_prog_id, library_key, interface_key};
    values = {
        {class_key, nullptr, title},
        {class_key + L"\\InprocServer32", nullptr, library},
        {class_key + L"\\InprocServer32", L"ThreadingModel", L"Apartment"},
        {class_key + L"\\ProgID", nullptr, versioned_prog_id},
        {class_key + L"\\VersionIndependentProgID", nullptr, prog_id},
        {class_key + L"\\TypeLib", nullptr, library_id},
        {class_key + L"\\Version", nullptr, L"1.0"},
        {class_key + L"\\Programmable", nullptr, L""},
        {prog_id, nullptr, title},
        {prog_id + L"\\CLSID", nullptr, class_id},
        {prog_id + L"\\CurVer", nullptr, versioned_prog_id},
        {versioned_prog_id, nullptr, title},
        {versioned_prog_id + L"\\CLSID", nullptr, class_id},
        {library_key + L"\\1.0", nullptr, title},
        {library_key + L"\\1.0\\0\\win64", nullptr, library},
        {library_key + L"\\1.0\\FLAGS", nullptr, L"0"},
        {interface_key, nullptr, L"_CKXData7Obj"},
        // The system's marshaler for interfaces that a type library describes.
        {interface_key + L"\\ProxyStubClsid32", nullptr, L"{00020424-0000-0000-C000-000000000046}"},
        {interface_key + L"\\TypeLib", nullptr, library_id},
        {interface_key + L"\\TypeLib", L"Version", L"1.0"},
    };
  }

  std::vector<std::wstring> keys;  // all that stands below them included; their parents are everybody's
  std::vector<Value> values;
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
  for (const std::wstring& key : Registration({}).keys) {
    const LSTATUS result = RegDeleteTreeW(root, (kClasses + (L"\\" + key)).c_str());
    if (result != ERROR_FILE_NOT_FOUND) Require(result, "cannot remove the registration");
  }
}

}  // namespace

void WriteRegistration(const std::filesystem::path& library) {
  const Key classes(IsAdministrator() ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, kClasses);
  for (const Value& value : Registration(library.native()).values) {
    Key(classes.get(), value.key.c_str()).Set(value.name, value.text);
  }
}

void RemoveRegistration() {
  RemoveFrom(HKEY_CURRENT_USER);
  if (IsAdministrator()) RemoveFrom(HKEY_LOCAL_MACHINE);
}

}  // namespace kx
