// A client that is bound when it is compiled, by the type library's own header, and finds the component by
// its registration:
//
//   early_binding SQLITE_PLANT
//
// Says what is otherwise than it must be; the last line is END.
#include <windows.h>
// Windows' own base header comes first; the next one makes the ids that the header declares.
#include <initguid.h>

#include <KXData7_typelib.h>
#include <ocidl.h>
#include <olectl.h>
#include <sqlite3.h>

#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>

namespace {

int current_line = 0;
bool own_apartment = true;

void Expect(bool holds, const char* what) {
  if (!holds)
    std::printf("%sline %d: not so: %s\n", own_apartment ? "" : "from another apartment, ", current_line,
                what);
}
#define EXPECT(condition) (current_line = __LINE__, Expect((condition), #condition))

// A text or an interface for the time of a test.
class Text {
 public:
  explicit Text(const wchar_t* text) : text_(SysAllocString(text)) {}
  Text() = default;
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  ~Text() { SysFreeString(text_); }
  operator BSTR() const { return text_; }
  BSTR* inout() { return &text_; }
  bool Is(std::wstring_view other) const { return other == std::wstring_view(text_, SysStringLen(text_)); }

 private:
  BSTR text_ = nullptr;
};

template <class T>
class Pointer {
 public:
  Pointer() = default;
  Pointer(const Pointer&) = delete;
  Pointer& operator=(const Pointer&) = delete;
  ~Pointer() {
    if (object_ != nullptr) object_->Release();
  }
  T* operator->() const { return object_; }
  T* get() const { return object_; }
  T** out() { return &object_; }
  void** void_out() { return reinterpret_cast<void**>(&object_); }

 private:
  T* object_ = nullptr;
};

using Component = Pointer<_CKXData7Obj>;

bool Create(Component& component) {
  return CoCreateInstance(__uuidof(CKXData7Obj), nullptr, CLSCTX_INPROC_SERVER, __uuidof(_CKXData7Obj),
                          component.void_out()) == S_OK;
}

bool Connect(const Component& component, BSTR plant) {
  Text error;
  VARIANT_BOOL connected = VARIANT_FALSE;
  return component->ConnectToDatabase(plant, 2, error.inout(), &connected) == S_OK &&
         connected == VARIANT_TRUE;
}

HRESULT AppendGoodPart(const Component& component, VARIANT_BOOL& queued) {
  Text error;
  return component->AppendItemToMDCLogDNC(10, 1, 10, 103, 13, Text(L"1"), 0, error.inout(), &queued);
}

// Every method through the interface's table of functions, directly or from another apartment.
void CallEveryMethod(BSTR plant) {
  Component component;
  EXPECT(Create(component));
  VARIANT_BOOL result = VARIANT_TRUE;
  EXPECT(component->IsConnected(&result) == S_OK && result == VARIANT_FALSE);
  LONG count = 7;
  EXPECT(component->GetMDCLogCount(&count) == E_FAIL);
  if (own_apartment) {  // Wine carries no error information between apartments
    Pointer<IErrorInfo> info;
    Text text;
    EXPECT(GetErrorInfo(0, info.out()) == S_OK && info->GetDescription(text.inout()) == S_OK);
    EXPECT(text.Is(L"Operation is not allowed when the object is closed."));
  }
  EXPECT(component->CompleteMachineDataRecord(1) == E_FAIL);

  Text error(L"of the client");
  EXPECT(component->ConnectToDatabase(Text(L"Provider=Nothing"), 2, error.inout(), &result) == S_OK);
  EXPECT(result == VARIANT_FALSE && !error.Is(L"of the client") && SysStringLen(error) > 0);
  EXPECT(Connect(component, plant));
  EXPECT(component->IsConnected(&result) == S_OK && result == VARIANT_TRUE);
  VARIANT hint;
  VariantInit(&hint);
  EXPECT(component->GetNoLock(&hint) == S_OK && hint.vt == VT_BSTR);
  EXPECT(std::wstring_view(hint.bstrVal) == L" with (NOLOCK)");
  VariantClear(&hint);
  EXPECT(component->AppendItemToMDCLog(2, 1, 2, 3, 6, Text(L""), 0, error.inout(), &result) == S_OK);
  EXPECT(result == VARIANT_TRUE && SysStringLen(error) == 0);
  EXPECT(AppendGoodPart(component, result) == S_OK && result == VARIANT_TRUE);
  EXPECT(component->GetMDCLogCount(&count) == S_OK && count == 2);
  EXPECT(component->DoNextItemFromMDCLog(error.inout(), &result) == S_OK && result == VARIANT_TRUE);
  EXPECT(component->DoNextItemFromMDCLog(error.inout(), &result) == S_OK && result == VARIANT_TRUE);
  EXPECT(component->DoNextItemFromMDCLog(error.inout(), &result) == S_OK && result == VARIANT_FALSE);
  EXPECT(SysStringLen(error) == 0);
  EXPECT(component->CompleteMachineDataRecord(1) == S_OK);
}

// {9CB6F163-CD5B-4E32-A6A0-18A9F7AB1C44}: an interface that the type library does not describe.
constexpr IID kDiagnosis{0x9CB6F163, 0xCD5B, 0x4E32, {0xA6, 0xA0, 0x18, 0xA9, 0xF7, 0xAB, 0x1C, 0x44}};

// The object lives in another apartment there; the system carries the calls to it by the registered type
// library.
void CallFromAnotherApartment(BSTR plant) {
  EXPECT(CoInitializeEx(nullptr, COINIT_MULTITHREADED) == S_OK);
  own_apartment = false;
  {
    Component component;
    Pointer<IUnknown> diagnosis;
    EXPECT(Create(component));
    EXPECT(component->QueryInterface(kDiagnosis, diagnosis.void_out()) == E_NOINTERFACE);
  }
  CallEveryMethod(plant);
  CoUninitialize();
}

struct Description {
  std::wstring_view name;
  int parameters;  // without the result
  bool has_result;
};
constexpr Description kMethods[] = {
    {L"IsConnected", 0, true},
    {L"ConnectToDatabase", 3, true},
    {L"AppendItemToMDCLog", 8, true},
    {L"AppendItemToMDCLogDNC", 8, true},
    {L"DoNextItemFromMDCLog", 1, true},
    {L"GetMDCLogCount", 0, true},
    {L"CompleteMachineDataRecord", 1, false},
    {L"GetNoLock", 0, true},
};

// The description of a method, null when there is none.
FUNCDESC* FindMethod(ITypeInfo* info, MEMBERID id) {
  TYPEATTR* attributes = nullptr;
  if (info->GetTypeAttr(&attributes) != S_OK) return nullptr;
  const UINT count = attributes->cFuncs;
  info->ReleaseTypeAttr(attributes);
  for (UINT i = 0; i < count; ++i) {
    FUNCDESC* function = nullptr;
    if (info->GetFuncDesc(i, &function) != S_OK) return nullptr;
    if (function->memid == id) return function;
    info->ReleaseFuncDesc(function);
  }
  return nullptr;
}

// As scripts see the interface (`vtable` false), or as compilers do.
void ExpectMethods(ITypeInfo* info, bool vtable) {
  for (std::size_t i = 0; i < std::size(kMethods); ++i) {
    const auto id = static_cast<MEMBERID>(i + 1);
    const Description& method = kMethods[i];
    FUNCDESC* const found = FindMethod(info, id);
    EXPECT(found != nullptr);
    if (found == nullptr) continue;
    EXPECT(found->cParams == method.parameters + (vtable && method.has_result ? 1 : 0));
    EXPECT(found->invkind == INVOKE_FUNC);
    EXPECT(static_cast<std::size_t>(found->oVft) == (7 + i) * sizeof(void*));
    info->ReleaseFuncDesc(found);
    Text name;
    UINT names = 0;
    EXPECT(info->GetNames(id, name.inout(), 1, &names) == S_OK && names == 1 && name.Is(method.name));
    std::wstring text(method.name);
    LPOLESTR asked = text.data();
    MEMBERID answer = 0;
    EXPECT(info->GetIDsOfNames(&asked, 1, &answer) == S_OK && answer == id);
  }
}

void ExpectTypeInfo() {
  Pointer<ITypeLib> registered;
  EXPECT(LoadRegTypeLib(LIBID_KXData7, 1, 0, 0, registered.out()) == S_OK);
  Text title;
  EXPECT(registered->GetDocumentation(-1, nullptr, title.inout(), nullptr, nullptr) == S_OK);
  EXPECT(title.Is(L"Velkaris Machine Data Library 7"));

  Component component;
  EXPECT(Create(component));
  UINT count = 0;
  EXPECT(component->GetTypeInfoCount(&count) == S_OK && count == 1);
  Pointer<ITypeInfo> info;
  EXPECT(component->GetTypeInfo(0, 0, info.out()) == S_OK);
  ExpectMethods(info.get(), false);
  HREFTYPE vtable_reference = 0;
  Pointer<ITypeInfo> vtable;
  EXPECT(info->GetRefTypeOfImplType(static_cast<UINT>(-1), &vtable_reference) == S_OK);
  EXPECT(info->GetRefTypeInfo(vtable_reference, vtable.out()) == S_OK);
  ExpectMethods(vtable.get(), true);

  // The class, and from there to its default interface.
  Pointer<IProvideClassInfo> provider;
  EXPECT(component->QueryInterface(IID_IProvideClassInfo, provider.void_out()) == S_OK);
  Pointer<ITypeInfo> class_info;
  EXPECT(provider->GetClassInfo(class_info.out()) == S_OK);
  TYPEATTR* attributes = nullptr;
  EXPECT(class_info->GetTypeAttr(&attributes) == S_OK);
  EXPECT(attributes->typekind == TKIND_COCLASS && attributes->guid == __uuidof(CKXData7Obj));
  EXPECT(attributes->cImplTypes == 1);
  class_info->ReleaseTypeAttr(attributes);
  int flags = 0;
  EXPECT(class_info->GetImplTypeFlags(0, &flags) == S_OK && flags == IMPLTYPEFLAG_FDEFAULT);
  HREFTYPE default_reference = 0;
  Pointer<ITypeInfo> default_interface;
  EXPECT(class_info->GetRefTypeOfImplType(0, &default_reference) == S_OK);
  EXPECT(class_info->GetRefTypeInfo(default_reference, default_interface.out()) == S_OK);
  EXPECT(default_interface->GetTypeAttr(&attributes) == S_OK && attributes->guid == __uuidof(_CKXData7Obj));
  default_interface->ReleaseTypeAttr(attributes);

  // The system's own Invoke, by the type information.
  DISPPARAMS none{};
  VARIANT result;
  VariantInit(&result);
  EXPECT(info->Invoke(component.get(), 8, DISPATCH_METHOD, &none, &result, nullptr, nullptr) == S_OK);
  EXPECT(result.vt == VT_BSTR);
  VariantClear(&result);
}

// What scripts send for an error text that is left out.
void LeaveErrorTextOut(BSTR plant) {
  Component component;
  EXPECT(Create(component));
  VARIANT arguments[3];  // the last one first
  for (VARIANT& argument : arguments) VariantInit(&argument);
  arguments[0].vt = VT_ERROR;
  arguments[0].scode = DISP_E_PARAMNOTFOUND;
  arguments[1].vt = VT_I2;
  arguments[1].iVal = 2;
  arguments[2].vt = VT_BSTR;
  arguments[2].bstrVal = plant;
  DISPPARAMS given{arguments, nullptr, 3, 0};
  VARIANT result;
  VariantInit(&result);
  EXPECT(component->Invoke(2, IID_NULL, 0, DISPATCH_METHOD, &given, &result, nullptr, nullptr) == S_OK);
  EXPECT(result.vt == VT_BOOL && result.boolVal == VARIANT_TRUE);
}

// A client that locks the plant and lets go when a message tells it to.
struct Locker {
  sqlite3* plant = nullptr;
  _CKXData7Obj* working = nullptr;  // the object that waits meanwhile
  HRESULT answer_meanwhile = S_OK;
  bool inside = false;    // a call is under way
  bool unlocked = false;  // the message came while it was
};
Locker locker;

constexpr UINT kUnlock = WM_APP + 1;
constexpr UINT kQuitCode = 42;

LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM first, LPARAM second) {
  if (message != kUnlock) return DefWindowProcW(window, message, first, second);
  locker.unlocked = locker.inside;
  LONG count = 0;
  locker.answer_meanwhile = locker.working->GetMDCLogCount(&count);
  sqlite3_exec(locker.plant, "rollback", nullptr, nullptr, nullptr);
  PostQuitMessage(kQuitCode);
  return 0;
}

// While a call waits for a locked plant, the thread's messages are dispatched. This one ends the lock, so
// that the call succeeds; the message that ends the client is left to the client's own loop.
void WaitForLockedPlant(BSTR connection, const char* file) {
  Component component;
  EXPECT(Create(component));
  EXPECT(Connect(component, connection));
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = OnMessage;
  window_class.lpszClassName = L"Unlock";
  EXPECT(RegisterClassW(&window_class) != 0);
  const HWND window =
      CreateWindowExW(0, L"Unlock", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
  EXPECT(window != nullptr);

  EXPECT(sqlite3_open(file, &locker.plant) == SQLITE_OK);
  EXPECT(sqlite3_exec(locker.plant, "begin immediate", nullptr, nullptr, nullptr) == SQLITE_OK);
  locker.working = component.get();
  std::thread later([window] {
    Sleep(1500);
    PostMessageW(window, kUnlock, 0, 0);
  });
  VARIANT_BOOL queued = VARIANT_FALSE;
  const DWORD begun = GetTickCount();
  locker.inside = true;
  EXPECT(AppendGoodPart(component, queued) == S_OK);
  locker.inside = false;
  EXPECT(queued == VARIANT_TRUE);
  EXPECT(GetTickCount() - begun < 8000);
  EXPECT(locker.unlocked);
  EXPECT(locker.answer_meanwhile == RPC_E_SERVERCALL_RETRYLATER);
  later.join();
  MSG message{};
  EXPECT(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) && message.message == WM_QUIT);
  EXPECT(message.wParam == kQuitCode);

  Text error;
  VARIANT_BOOL done = VARIANT_FALSE;
  EXPECT(component->DoNextItemFromMDCLog(error.inout(), &done) == S_OK && done == VARIANT_TRUE);
  DestroyWindow(window);
  sqlite3_close(locker.plant);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::string file = argv[1];
  const Text plant((L"Provider=SQLite;Data Source=" + std::wstring(file.begin(), file.end())).c_str());
  EXPECT(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED) == S_OK);
  CallEveryMethod(plant);
  ExpectTypeInfo();
  LeaveErrorTextOut(plant);
  WaitForLockedPlant(plant, argv[1]);
  std::thread(CallFromAnotherApartment, static_cast<BSTR>(plant)).join();
  CoUninitialize();
  std::puts("END");
  return 0;
}
