// A C++20 client: owning types, the loaded library, and the component in C++ values. KXData7.h includes it.
#pragma once

#ifndef _WIN32
#include <dlfcn.h>
#include <unistd.h>
#endif

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kxdata7/text.h"

namespace kxdata7 {

using OleString = std::basic_string<OLECHAR>;
using OleStringView = std::basic_string_view<OLECHAR>;

inline OleString ToOleString(std::string_view text) { return text_internal::Decode<OLECHAR>(text); }

// Owns a BSTR.
class Bstr {
 public:
  Bstr() = default;  // null: the empty text
  explicit Bstr(OleStringView text) : text_(SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {
    if (text_ == nullptr) throw std::bad_alloc();
  }
  explicit Bstr(const OLECHAR* text) : Bstr(OleStringView(text)) {}
  static Bstr Attach(BSTR text) {  // takes over a text that the caller owns
    Bstr result;
    result.text_ = text;
    return result;
  }
  static Bstr FromUtf8(std::string_view text) { return Bstr(OleStringView(ToOleString(text))); }
  Bstr(Bstr&& other) noexcept : text_(other.release()) {}
  Bstr& operator=(Bstr&& other) noexcept {
    if (this != &other) SysFreeString(std::exchange(text_, other.release()));
    return *this;
  }
  ~Bstr() { SysFreeString(text_); }

  BSTR get() const { return text_; }
  BSTR* inout() { return &text_; }  // for a parameter that reads and replaces the text
  BSTR* out() {                     // for one that only writes it
    SysFreeString(release());
    return &text_;
  }
  BSTR release() { return std::exchange(text_, nullptr); }

  OleStringView view() const { return {text_, SysStringLen(text_)}; }
  std::string ToUtf8() const { return kxdata7::ToUtf8(view()); }

 private:
  BSTR text_ = nullptr;
};

// Owns the contents of a VARIANT.
struct Variant : VARIANT {
  Variant() { VariantInit(this); }
  Variant(Variant&& other) noexcept : VARIANT(other) { VariantInit(&other); }
  Variant& operator=(Variant&&) = delete;
  ~Variant() { VariantClear(this); }
};

// Owns one reference to an object.
template <class T>
class ComPtr {
 public:
  ComPtr() = default;
  static ComPtr Attach(T* object) {  // takes over a reference that the caller holds
    ComPtr result;
    result.object_ = object;
    return result;
  }
  ComPtr(const ComPtr& other) : object_(other.object_) {
    if (object_ != nullptr) object_->AddRef();
  }
  ComPtr(ComPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~ComPtr() {
    if (object_ != nullptr) object_->Release();
  }

  T* get() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }
  T** out() {  // for a parameter that writes an interface pointer
    *this = ComPtr();
    return &object_;
  }
  T* release() { return std::exchange(object_, nullptr); }

  // The object's interface `iid`, which must be that of U; null when it has none.
  template <class U>
  ComPtr<U> Query(REFIID iid) const {
    void* found = nullptr;
    if (object_ == nullptr || FAILED(object_->QueryInterface(iid, &found))) return {};
    return ComPtr<U>::Attach(static_cast<U*>(found));
  }

 private:
  T* object_ = nullptr;
};

#ifdef _WIN32

// A library of the system, by its handle.
namespace loader {
using Handle = HMODULE;
inline Handle Open(const std::filesystem::path& file) { return LoadLibraryW(file.c_str()); }
inline void Close(Handle handle) { FreeLibrary(handle); }
inline void* Find(Handle handle, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(handle, name));
}
// Why `what` could not be opened or found.
inline std::string LastError(const std::string& what) {
  return what + ": error " + std::to_string(GetLastError()) + " of Windows";
}
}  // namespace loader

// "{6D3DC26E-…}", as the registry has it.
inline std::wstring ToRegistryText(REFGUID guid) {
  wchar_t text[39];
  return {text, static_cast<std::size_t>(StringFromGUID2(guid, text, 39) - 1)};
}

// The file that serves the class, as the registry says; empty when none does.
inline std::filesystem::path RegisteredFile() {
  const std::wstring key = L"CLSID\\" + ToRegistryText(CLSID_CKXData7Obj) + L"\\InprocServer32";
  wchar_t file[MAX_PATH];
  DWORD bytes = sizeof file;
  const LSTATUS result =
      RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), nullptr, RRF_RT_REG_SZ, nullptr, file, &bytes);
  return result == ERROR_SUCCESS ? std::filesystem::path(file) : std::filesystem::path();
}
inline std::string RegistrationPlaces() { return "HKEY_CLASSES_ROOT"; }

#else

namespace loader {
using Handle = void*;
inline Handle Open(const std::filesystem::path& file) { return dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL); }
inline void Close(Handle handle) { dlclose(handle); }
inline void* Find(Handle handle, const char* name) { return dlsym(handle, name); }
inline std::string LastError(const std::string&) { return dlerror(); }  // names it itself
}  // namespace loader

// Where classes are registered, the most important place first: $KXDATA7_CLASSES alone when it is set;
// otherwise the user's own place ($XDG_DATA_HOME/com-classes, by default ~/.local/share/com-classes), which
// root has not, then the machine's and last that of the system's packages. A registration goes to the first.
inline std::vector<std::filesystem::path> ClassDirectories() {
  const auto variable = [](const char* name) {
    const char* value = std::getenv(name);
    return std::filesystem::path(value == nullptr ? "" : value);
  };
  if (const auto own = variable("KXDATA7_CLASSES"); !own.empty()) return {own};
  std::vector<std::filesystem::path> result;
  if (geteuid() != 0) {
    const auto data_home = variable("XDG_DATA_HOME");
    const auto home = variable("HOME");
    if (data_home.is_absolute()) {
      result.push_back(data_home / "com-classes");
    } else if (home.is_absolute()) {
      result.push_back(home / ".local/share/com-classes");
    }
  }
  result.push_back("/usr/local/share/com-classes");
  result.push_back("/usr/share/com-classes");
  return result;
}

// A registration is a text file of this name with lines `name=value`: ProgID and Library, an absolute path.
inline constexpr const char* kClassFileName = "{6D3DC26E-FE47-4582-BD90-5E241A8DBC8B}";

// The file that serves the class, as its registration says; empty when none does.
inline std::filesystem::path RegisteredFile() {
  for (const auto& directory : ClassDirectories()) {
    std::ifstream file(directory / kClassFileName);
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("Library=")) return line.substr(line.find('=') + 1);
    }
  }
  return {};
}
inline std::string RegistrationPlaces() {
  std::string result;
  for (const auto& directory : ClassDirectories())
    result += (result.empty() ? "" : ", ") + directory.string();
  return result;
}

#endif

// The loaded component. Failures are std::runtime_error with a text in UTF-8. The library is unloaded with
// this object unless the component is still in use. On Windows the calling thread must have entered COM
// (CoInitializeEx); there a client may as well use CoCreateInstance alone.
class Library {
 public:
  // By the path of the library; a bare file name is searched for as the system's loader does.
  static Library Load(const std::filesystem::path& file) {
    Library result;
    result.handle_ = loader::Open(file.has_parent_path() ? std::filesystem::absolute(file) : file);
    if (result.handle_ == nullptr) {
      const auto name = file.u8string();
      throw std::runtime_error("Cannot load the component: " + loader::LastError({name.begin(), name.end()}));
    }
    const auto find = [&](auto& function, const char* name) {
      void* const address = loader::Find(result.handle_, name);
      if (address == nullptr) throw std::runtime_error("Not the component: " + loader::LastError(name));
      function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(address);
    };
    find(result.functions_.get_class_object, "DllGetClassObject");
    find(result.functions_.can_unload_now, "DllCanUnloadNow");
    find(result.functions_.register_server, "DllRegisterServer");
    find(result.functions_.unregister_server, "DllUnregisterServer");
#ifndef _WIN32
    find(result.functions_.get_error_info, "GetErrorInfo");
    find(result.functions_.set_yield_hook, "KXSetYieldHook");
#endif
    return result;
  }

  // By the class's registration.
  static Library Registered() {
    const auto file = RegisteredFile();
    if (!file.empty()) return Load(file);
    throw std::runtime_error("The class KXData7.CKXData7Obj is not registered in " + RegistrationPlaces());
  }

  // The component that this program is linked with.
  static Library Linked() {
    Library result;
    result.functions_.get_class_object = &DllGetClassObject;
    result.functions_.can_unload_now = &DllCanUnloadNow;
    result.functions_.register_server = &DllRegisterServer;
    result.functions_.unregister_server = &DllUnregisterServer;
#ifndef _WIN32
    result.functions_.get_error_info = &GetErrorInfo;
    result.functions_.set_yield_hook = &KXSetYieldHook;
#endif
    return result;
  }

  Library(Library&& other) noexcept
      : handle_(std::exchange(other.handle_, nullptr)), functions_(other.functions_) {}
  Library& operator=(Library&&) = delete;
  ~Library() {
    const bool in_use = functions_.can_unload_now != nullptr && functions_.can_unload_now() != S_OK;
    if (handle_ != nullptr && !in_use) loader::Close(handle_);
  }

  // A new object, not connected.
  ComPtr<_CKXData7Obj> Create() const {
    ComPtr<IClassFactory> factory;
    void** out = reinterpret_cast<void**>(factory.out());
    Check(functions_.get_class_object(CLSID_CKXData7Obj, IID_IClassFactory, out));
    ComPtr<_CKXData7Obj> result;
    out = reinterpret_cast<void**>(result.out());
    Check(factory->CreateInstance(nullptr, IID__CKXData7Obj, out));
    return result;
  }

  // Why the calling thread's last call failed, null when it gave no reason. It is told once.
  Bstr TakeErrorText() const {
    Bstr text;
    ComPtr<IErrorInfo> info;
    if (functions_.get_error_info(0, info.out()) == S_OK) info->GetDescription(text.out());
    return text;
  }

  // Throws the reason when a call on this thread failed.
  void Check(HRESULT result) const {
    if (SUCCEEDED(result)) return;
    std::string text = TakeErrorText().ToUtf8();
    char code[sizeof "0x80000000"];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(result));
    throw std::runtime_error(text.empty() ? std::string("The component answered ") + code : text);
  }

  // Registers the class with this file, and takes the registration back: on Linux in the first of
  // ClassDirectories(), on Windows for all users or, without an administrator's rights, for this one.
  void Register() const { Check(functions_.register_server()); }
  void Unregister() const { Check(functions_.unregister_server()); }

#ifndef _WIN32
  void SetYieldHook(void (*hook)()) const { functions_.set_yield_hook(hook); }
#endif

 private:
  // What the library exports.
  struct Functions {
    decltype(&DllGetClassObject) get_class_object = nullptr;
    decltype(&DllCanUnloadNow) can_unload_now = nullptr;
    decltype(&DllRegisterServer) register_server = nullptr;
    decltype(&DllUnregisterServer) unregister_server = nullptr;
#ifdef _WIN32
    decltype(&GetErrorInfo) get_error_info = &GetErrorInfo;
#else
    decltype(&GetErrorInfo) get_error_info = nullptr;
    decltype(&KXSetYieldHook) set_yield_hook = nullptr;
#endif
  };

  Library() = default;

  loader::Handle handle_ = nullptr;
  Functions functions_;
};

// The dialect of the statements that the component writes.
enum class Dialect : LONG { kOracle = 0, kAccess = 1, kSqlServer = 2 };

// Where an event belongs and which command it is: internal ids, or numbers of the DNC system.
struct EventNumbers {
  LONG dept = -1;
  LONG location = -1;
  LONG group = -1;
  LONG machine = -1;
  LONG command = -1;  // -1: a refresh of the machine's shifts
};
enum class NumberKind { kIds, kDnc };

// The answer of a call that may say no: done; not done for the reason in `error`; or neither. Next answers
// neither when nothing waits, or when the event was applied but its row stays, and rows wait then.
struct Answer {
  bool done = false;
  std::string error;

  explicit operator bool() const { return done; }
  bool neither() const { return !done && error.empty(); }
  void OrThrow() const {
    if (!done) throw std::runtime_error(error.empty() ? "The database did not take it." : error);
  }
  friend bool operator==(const Answer&, const Answer&) = default;
};

// One object of the component. A call that fails as such (the failing HRESULTs of KXData7.h) is a
// std::runtime_error. One caller at a time.
class Client {
 public:
  explicit Client(Library library) : library_(std::move(library)), object_(library_.Create()) {}

  Answer Connect(std::string_view connection_string, Dialect dialect = Dialect::kOracle) {
    return Ask([&](BSTR* error, VARIANT_BOOL* done) {
      return object_->ConnectToDatabase(Bstr::FromUtf8(connection_string).get(), static_cast<LONG>(dialect),
                                        error, done);
    });
  }
  bool IsConnected() {
    VARIANT_BOOL connected = VARIANT_FALSE;
    library_.Check(object_->IsConnected(&connected));
    return connected == VARIANT_TRUE;
  }

  // Queues an event. An error without a text: the statement itself kept failing.
  Answer Append(const EventNumbers& event, std::string_view param, LONG time_code,
                NumberKind kind = NumberKind::kIds) {
    const auto append =
        kind == NumberKind::kDnc ? &_CKXData7Obj::AppendItemToMDCLogDNC : &_CKXData7Obj::AppendItemToMDCLog;
    return Ask([&](BSTR* error, VARIANT_BOOL* done) {
      return (object_.get()->*append)(event.dept, event.location, event.group, event.machine, event.command,
                                      Bstr::FromUtf8(param).get(), time_code, error, done);
    });
  }
  // Works the oldest event in.
  Answer Next() {
    return Ask([&](BSTR* error, VARIANT_BOOL* done) { return object_->DoNextItemFromMDCLog(error, done); });
  }
  LONG Count() {
    LONG count = 0;
    library_.Check(object_->GetMDCLogCount(&count));
    return count;
  }
  void Complete(LONG machine_data_id) { library_.Check(object_->CompleteMachineDataRecord(machine_data_id)); }

  // The clock of the database, by which events are queued, as "YYYY-MM-DD HH:MM:SS".
  std::string ServerTime() {
    Bstr time;
    library_.Check(Diagnosis()->GetServerTime(time.out()));
    return time.ToUtf8();
  }
  // Kind `index` of the statements that the component tries on the database, counted from 0, and why it
  // fails; empty: it does not. Nothing past the last.
  struct Trial {
    std::string name;
    std::string error;
  };
  std::optional<Trial> Try(LONG index) {
    Bstr name, error;
    const HRESULT result = Diagnosis()->TryStatements(index, name.out(), error.out());
    library_.Check(result);
    if (result == S_FALSE) return std::nullopt;
    return Trial{name.ToUtf8(), error.ToUtf8()};
  }

  // The shift that a machine works at a time, -1 for none, since when and until when, and the chart date of
  // the time; every time as "YYYY-MM-DD HH:MM:SS".
  struct ShiftSpan {
    LONG shift_id = -1;
    std::string from, until, chart_date;
  };
  ShiftSpan ShiftAt(LONG machine, std::string_view time) {
    LONG shift_id = -1;
    Bstr from, until, chart_date;
    library_.Check(Diagnosis()->GetShiftAt(machine, Bstr::FromUtf8(time).get(), &shift_id, from.out(),
                                           until.out(), chart_date.out()));
    return {shift_id, from.ToUtf8(), until.ToUtf8(), chart_date.ToUtf8()};
  }

  const Library& library() const { return library_; }
  _CKXData7Obj* operator->() const { return object_.get(); }
  _CKXData7Obj& operator*() const { return *object_; }

 private:
  template <class Call>
  Answer Ask(Call call) {
    Bstr error;
    VARIANT_BOOL done = VARIANT_FALSE;
    library_.Check(call(error.inout(), &done));
    return {done == VARIANT_TRUE, error.ToUtf8()};
  }
  ComPtr<IKXData7Diagnosis> Diagnosis() const {
    auto diagnosis = object_.Query<IKXData7Diagnosis>(IID_IKXData7Diagnosis);
    if (!diagnosis) throw std::runtime_error("The component is older than this program.");
    return diagnosis;
  }

  Library library_;
  ComPtr<_CKXData7Obj> object_;
};

}  // namespace kxdata7
