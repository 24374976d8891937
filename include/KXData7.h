// KXData7: machine data collection in one COM class, CKXData7Obj. This is the only header a client needs.
//
// The first half is COM's binary interface as it is on x86-64. On Windows it comes from the system's headers;
// on Linux it is defined here, with the same names and layouts, from the standard library alone. The second
// half, namespace kxdata7, is a small C++20 client:
//
//   auto library = kxdata7::Library::Registered();
//   auto component = library.Create();
//   kxdata7::Bstr error;
//   VARIANT_BOOL connected;
//   library.Check(component->ConnectToDatabase(kxdata7::Bstr(u"Provider=SQLite;Data Source=plant.db").get(),
//   2,
//                                              error.inout(), &connected));
//   if (connected != VARIANT_TRUE) std::cerr << error.ToUtf8() << '\n';
#ifndef KXDATA7_H_
#define KXDATA7_H_

#ifdef _WIN32
#include <windows.h>
// Windows' own base header comes first.
#include <oaidl.h>
#include <ocidl.h>
#include <oleauto.h>
#include <olectl.h>
#else
#include <dlfcn.h>
#include <unistd.h>
#endif

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <limits>
#include <locale>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#ifndef _WIN32

// ---- COM on Linux: types ----

#define STDMETHODCALLTYPE
#define KXDATA7_EXPORT extern "C" __attribute__((visibility("default")))

using BYTE = std::uint8_t;
using SHORT = std::int16_t;
using USHORT = std::uint16_t;
using WORD = std::uint16_t;
using BOOL = std::int32_t;
using INT = std::int32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;

using HRESULT = LONG;  // negative: the call failed
using SCODE = LONG;
using LCID = DWORD;
using DISPID = LONG;
using VARTYPE = USHORT;
using VARIANT_BOOL = SHORT;
using DATE = double;
union CY {
  LONGLONG int64;  // ten-thousandths
};

// Text is UTF-16. A BSTR points behind a 4-byte count of the text's bytes and ends with a NUL that is not
// counted; it is made by SysAllocString… and freed by SysFreeString. A null BSTR is the empty text.
using OLECHAR = char16_t;
#define OLESTR(text) u##text
using LPOLESTR = OLECHAR*;
using BSTR = OLECHAR*;

struct GUID {
  ULONG Data1;
  USHORT Data2;
  USHORT Data3;
  BYTE Data4[8];
  friend constexpr bool operator==(const GUID&, const GUID&) = default;
};
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

inline constexpr VARIANT_BOOL VARIANT_TRUE = -1;
inline constexpr VARIANT_BOOL VARIANT_FALSE = 0;

struct IUnknown;
struct IDispatch;
struct ITypeInfo;  // never handed out on Linux

// One value of any type: `vt` says which member holds it, or with VT_BYREF which one points at it.
struct VARIANT {
  VARTYPE vt;
  WORD wReserved1;
  WORD wReserved2;
  WORD wReserved3;
  union {
    signed char cVal;
    BYTE bVal;
    SHORT iVal;
    USHORT uiVal;
    LONG lVal;
    ULONG ulVal;
    INT intVal;
    UINT uintVal;
    LONGLONG llVal;
    ULONGLONG ullVal;
    float fltVal;
    double dblVal;
    VARIANT_BOOL boolVal;
    SCODE scode;
    CY cyVal;
    DATE date;
    BSTR bstrVal;
    IUnknown* punkVal;
    IDispatch* pdispVal;
    void* byref;
    signed char* pcVal;
    BYTE* pbVal;
    SHORT* piVal;
    USHORT* puiVal;
    LONG* plVal;
    ULONG* pulVal;
    INT* pintVal;
    UINT* puintVal;
    LONGLONG* pllVal;
    ULONGLONG* pullVal;
    float* pfltVal;
    double* pdblVal;
    VARIANT_BOOL* pboolVal;
    SCODE* pscode;
    CY* pcyVal;
    DATE* pdate;
    BSTR* pbstrVal;
    IUnknown** ppunkVal;
    IDispatch** ppdispVal;
    VARIANT* pvarVal;
    struct {
      void* pvRecord;
      void* pRecInfo;
    } brecVal;
  };
};
using VARIANTARG = VARIANT;

inline constexpr VARTYPE VT_EMPTY = 0;
inline constexpr VARTYPE VT_NULL = 1;
inline constexpr VARTYPE VT_I2 = 2;
inline constexpr VARTYPE VT_I4 = 3;
inline constexpr VARTYPE VT_R4 = 4;
inline constexpr VARTYPE VT_R8 = 5;
inline constexpr VARTYPE VT_CY = 6;
inline constexpr VARTYPE VT_DATE = 7;
inline constexpr VARTYPE VT_BSTR = 8;
inline constexpr VARTYPE VT_DISPATCH = 9;
inline constexpr VARTYPE VT_ERROR = 10;
inline constexpr VARTYPE VT_BOOL = 11;
inline constexpr VARTYPE VT_VARIANT = 12;
inline constexpr VARTYPE VT_UNKNOWN = 13;
inline constexpr VARTYPE VT_I1 = 16;
inline constexpr VARTYPE VT_UI1 = 17;
inline constexpr VARTYPE VT_UI2 = 18;
inline constexpr VARTYPE VT_UI4 = 19;
inline constexpr VARTYPE VT_I8 = 20;
inline constexpr VARTYPE VT_UI8 = 21;
inline constexpr VARTYPE VT_INT = 22;
inline constexpr VARTYPE VT_UINT = 23;
inline constexpr VARTYPE VT_BYREF = 0x4000;

// The arguments of IDispatch::Invoke, last one first.
struct DISPPARAMS {
  VARIANTARG* rgvarg;
  DISPID* rgdispidNamedArgs;
  UINT cArgs;
  UINT cNamedArgs;
};

// What Invoke says about a method that failed; the caller frees the texts.
struct EXCEPINFO {
  WORD wCode;
  WORD wReserved;
  BSTR bstrSource;
  BSTR bstrDescription;
  BSTR bstrHelpFile;
  DWORD dwHelpContext;
  void* pvReserved;
  HRESULT (*pfnDeferredFillIn)(EXCEPINFO*);
  SCODE scode;
};

static_assert(sizeof(GUID) == 16 && sizeof(VARIANT) == 24 && sizeof(DISPPARAMS) == 24 &&
              sizeof(EXCEPINFO) == 64);

inline constexpr DISPID DISPID_UNKNOWN = -1;
inline constexpr WORD DISPATCH_METHOD = 1;
inline constexpr WORD DISPATCH_PROPERTYGET = 2;
inline constexpr WORD DISPATCH_PROPERTYPUT = 4;
inline constexpr WORD DISPATCH_PROPERTYPUTREF = 8;

// ---- COM on Linux: results ----

constexpr bool SUCCEEDED(HRESULT result) { return result >= 0; }
constexpr bool FAILED(HRESULT result) { return result < 0; }

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = HRESULT(0x80004001);
inline constexpr HRESULT E_NOINTERFACE = HRESULT(0x80004002);
inline constexpr HRESULT E_POINTER = HRESULT(0x80004003);
inline constexpr HRESULT E_FAIL = HRESULT(0x80004005);
inline constexpr HRESULT E_ACCESSDENIED = HRESULT(0x80070005);
inline constexpr HRESULT E_OUTOFMEMORY = HRESULT(0x8007000E);
inline constexpr HRESULT E_INVALIDARG = HRESULT(0x80070057);
inline constexpr HRESULT RPC_E_SERVERCALL_RETRYLATER = HRESULT(0x8001010A);
inline constexpr HRESULT DISP_E_UNKNOWNINTERFACE = HRESULT(0x80020001);
inline constexpr HRESULT DISP_E_MEMBERNOTFOUND = HRESULT(0x80020003);
inline constexpr HRESULT DISP_E_PARAMNOTFOUND = HRESULT(0x80020004);
inline constexpr HRESULT DISP_E_TYPEMISMATCH = HRESULT(0x80020005);
inline constexpr HRESULT DISP_E_UNKNOWNNAME = HRESULT(0x80020006);
inline constexpr HRESULT DISP_E_NONAMEDARGS = HRESULT(0x80020007);
inline constexpr HRESULT DISP_E_BADVARTYPE = HRESULT(0x80020008);
inline constexpr HRESULT DISP_E_EXCEPTION = HRESULT(0x80020009);
inline constexpr HRESULT DISP_E_OVERFLOW = HRESULT(0x8002000A);
inline constexpr HRESULT DISP_E_BADINDEX = HRESULT(0x8002000B);
inline constexpr HRESULT DISP_E_BADPARAMCOUNT = HRESULT(0x8002000E);
inline constexpr HRESULT DISP_E_PARAMNOTOPTIONAL = HRESULT(0x8002000F);
inline constexpr HRESULT CLASS_E_NOAGGREGATION = HRESULT(0x80040110);
inline constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = HRESULT(0x80040111);
inline constexpr HRESULT SELFREG_E_CLASS = HRESULT(0x80040201);

// ---- COM on Linux: interfaces ----
//
// The order of the functions is the binary interface. Objects are released, never deleted.

inline constexpr IID IID_NULL{};
inline constexpr IID IID_IUnknown{0x00000000, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID IID_IClassFactory{0x00000001, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID IID_IDispatch{0x00020400, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID IID_IErrorInfo{
    0x1CF2B120, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
inline constexpr IID IID_ISupportErrorInfo{
    0xDF0B3D60, 0x548F, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
inline constexpr IID IID_IProvideClassInfo{
    0xB196B283, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}};

struct IUnknown {
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) = 0;
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;

 protected:
  ~IUnknown() = default;
};

struct IClassFactory : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) = 0;
  virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) = 0;

 protected:
  ~IClassFactory() = default;
};

struct IDispatch : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* pctinfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid,
                                                  DISPID* rgDispId) = 0;
  virtual HRESULT STDMETHODCALLTYPE Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags,
                                           DISPPARAMS* pDispParams, VARIANT* pVarResult,
                                           EXCEPINFO* pExcepInfo, UINT* puArgErr) = 0;

 protected:
  ~IDispatch() = default;
};

struct IErrorInfo : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetGUID(GUID* pGUID) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSource(BSTR* pBstrSource) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDescription(BSTR* pBstrDescription) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* pBstrHelpFile) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* pdwHelpContext) = 0;

 protected:
  ~IErrorInfo() = default;
};

struct ISupportErrorInfo : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) = 0;

 protected:
  ~ISupportErrorInfo() = default;
};

struct IProvideClassInfo : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetClassInfo(ITypeInfo** ppTI) = 0;

 protected:
  ~IProvideClassInfo() = default;
};

// ---- COM on Linux: automation helpers ----
//
// Texts live on the C heap, which client and component share; the component exports these definitions too.

// `length` units of `text`, or that many undefined ones when it is null. Null when memory is short.
KXDATA7_EXPORT inline BSTR SysAllocStringLen(const OLECHAR* text, UINT length) {
  if (length > (std::numeric_limits<UINT>::max() - 6) / sizeof(OLECHAR)) return nullptr;
  const UINT bytes = length * UINT{sizeof(OLECHAR)};
  auto* block = static_cast<unsigned char*>(std::malloc(sizeof(UINT) + bytes + sizeof(OLECHAR)));
  if (block == nullptr) return nullptr;
  std::memcpy(block, &bytes, sizeof bytes);
  auto* result = reinterpret_cast<BSTR>(block + sizeof bytes);
  if (text != nullptr) std::memcpy(result, text, bytes);
  result[length] = 0;
  return result;
}

// A copy of a text that ends with a NUL; null for null.
KXDATA7_EXPORT inline BSTR SysAllocString(const OLECHAR* text) {
  if (text == nullptr) return nullptr;
  const std::size_t length = std::char_traits<OLECHAR>::length(text);
  if (length > std::numeric_limits<UINT>::max()) return nullptr;
  return SysAllocStringLen(text, static_cast<UINT>(length));
}

KXDATA7_EXPORT inline void SysFreeString(BSTR text) {
  if (text != nullptr) std::free(reinterpret_cast<unsigned char*>(text) - sizeof(UINT));
}

// The length in UTF-16 units; 0 for null.
KXDATA7_EXPORT inline UINT SysStringLen(BSTR text) {
  if (text == nullptr) return 0;
  UINT bytes;
  std::memcpy(&bytes, reinterpret_cast<unsigned char*>(text) - sizeof bytes, sizeof bytes);
  return bytes / UINT{sizeof(OLECHAR)};
}

// Makes raw memory an empty variant.
KXDATA7_EXPORT inline void VariantInit(VARIANTARG* variant) { *variant = VARIANT{}; }

// Frees what a variant owns and makes it empty; what it refers to with VT_BYREF stays the caller's. A type
// that it does not know, an array for one, stays as it is.
KXDATA7_EXPORT inline HRESULT VariantClear(VARIANTARG* variant) {
  if ((variant->vt & VT_BYREF) == 0) {
    if (variant->vt > VT_UINT) return DISP_E_BADVARTYPE;
    if (variant->vt == VT_BSTR) SysFreeString(variant->bstrVal);
    const bool interface_held = variant->vt == VT_UNKNOWN || variant->vt == VT_DISPATCH;
    if (interface_held && variant->punkVal != nullptr) variant->punkVal->Release();
  }
  VariantInit(variant);
  return S_OK;
}

// ---- What the library exports beside them ----

// The description of the calling thread's last failed call, taken from the thread: S_FALSE and null when
// there is none. The caller releases it.
KXDATA7_EXPORT HRESULT GetErrorInfo(ULONG dwReserved, IErrorInfo** pperrinfo);
KXDATA7_EXPORT HRESULT SetErrorInfo(ULONG dwReserved, IErrorInfo* perrinfo);

KXDATA7_EXPORT HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv);
KXDATA7_EXPORT HRESULT DllCanUnloadNow();  // S_OK: no object and no lock is left
KXDATA7_EXPORT HRESULT DllRegisterServer();
KXDATA7_EXPORT HRESULT DllUnregisterServer();

// Sets the function that the component runs, at least every 10 ms, while it waits for a busy database, on the
// thread that called the component; null for none. It must not throw (what it throws is lost), and not call
// the waiting object (which answers RPC_E_SERVERCALL_RETRYLATER). It does not run while an ODBC driver works
// or waits by itself: for a connection up to 15 s, for another session's lock up to a second at a time.
KXDATA7_EXPORT void KXSetYieldHook(void (*hook)());

#endif  // !_WIN32

// ---- The component ----

// {0E0E8AE5-6B54-4B7B-9C5D-6F3B3F1A7D07}, version 1.0
inline constexpr GUID LIBID_KXData7{
    0x0E0E8AE5, 0x6B54, 0x4B7B, {0x9C, 0x5D, 0x6F, 0x3B, 0x3F, 0x1A, 0x7D, 0x07}};
// {6D3DC26E-FE47-4582-BD90-5E241A8DBC8B}, ProgID KXData7.CKXData7Obj
inline constexpr CLSID CLSID_CKXData7Obj{
    0x6D3DC26E, 0xFE47, 0x4582, {0xBD, 0x90, 0x5E, 0x24, 0x1A, 0x8D, 0xBC, 0x8B}};
// {CCB76FB7-FDFA-4D13-B7DC-5809191A4643}
inline constexpr IID IID__CKXData7Obj{
    0xCCB76FB7, 0xFDFA, 0x4D13, {0xB7, 0xDC, 0x58, 0x09, 0x19, 0x1A, 0x46, 0x43}};

// {9CB6F163-CD5B-4E32-A6A0-18A9F7AB1C44}
inline constexpr IID IID_IKXData7Diagnosis{
    0x9CB6F163, 0xCD5B, 0x4E32, {0xA6, 0xA0, 0x18, 0xA9, 0xF7, 0xAB, 0x1C, 0x44}};

// Through IDispatch the methods have the ids 1 to 8, in this order.
//
// Results. A method's outcome is `*result`; the HRESULT says whether the call itself took place. It is S_OK
// for IsConnected, ConnectToDatabase, AppendItemToMDCLog, DoNextItemFromMDCLog and GetNoLock, whatever the
// database does. The other three answer E_FAIL when the database fails, with the reason in GetErrorInfo. Any
// method may answer E_POINTER (a null `result` or `strError`; nothing was done), RPC_E_SERVERCALL_RETRYLATER
// (the object is working for another call; nothing was done) and E_OUTOFMEMORY. On a failing HRESULT
// `*result` is 0 or VT_EMPTY.
//
// Texts. Input texts are read only. `*strError` is in and out: a null or valid BSTR, which the method frees
// and replaces when the text changes; the caller frees the one it gets back.
//
// Threads. One object serves one caller at a time, from any thread; several objects are independent. A call
// may last as long as a busy database makes it (see KXSetYieldHook).
struct _CKXData7Obj : IDispatch {
  // VARIANT_TRUE: the connection is open and the plant database answers.
  virtual HRESULT STDMETHODCALLTYPE IsConnected(VARIANT_BOOL* result) = 0;

  // Closes the connection in use and opens another. `lDatabaseType` is the dialect of the statements: 0
  // Oracle, 1 Access, 2 SQL Server. VARIANT_TRUE leaves `*strError` alone; VARIANT_FALSE puts the reason
  // there.
  virtual HRESULT STDMETHODCALLTYPE ConnectToDatabase(BSTR strConnectionString, LONG lDatabaseType,
                                                      BSTR* strError, VARIANT_BOOL* result) = 0;

  // Queues one event, by the plant's internal ids. Command -1 asks for a refresh of the machine's status.
  // `strParam` must hold no apostrophe. `lCommandTimeCode`: 0 start, 1 end, 2 both (custom commands).
  virtual HRESULT STDMETHODCALLTYPE AppendItemToMDCLog(LONG lDeptID, LONG lLocationID, LONG lGroupID,
                                                       LONG lMachineID, LONG lCommandID, BSTR strParam,
                                                       LONG lCommandTimeCode, BSTR* strError,
                                                       VARIANT_BOOL* result) = 0;

  // The same by the numbers of the DNC system; an unknown number counts as -1.
  virtual HRESULT STDMETHODCALLTYPE AppendItemToMDCLogDNC(LONG lDeptVelkarisID, LONG lLocationVelkarisID,
                                                          LONG lGroupVelkarisID, LONG lMachineVelkarisID,
                                                          LONG lCommandVelkarisID, BSTR strParam,
                                                          LONG lCommandTimeCode, BSTR* strError,
                                                          VARIANT_BOOL* result) = 0;

  // Works the oldest queued event into the plant's records. VARIANT_FALSE with an empty `*strError`: nothing
  // waits, or the event was applied but could not be taken off the queue; with a text: the event stays first
  // in the queue for this reason. One process at a time may do this on a plant.
  virtual HRESULT STDMETHODCALLTYPE DoNextItemFromMDCLog(BSTR* strError, VARIANT_BOOL* result) = 0;

  // How many events wait.
  virtual HRESULT STDMETHODCALLTYPE GetMDCLogCount(LONG* result) = 0;

  // Marks a closed machine data record complete when it is consistent.
  virtual HRESULT STDMETHODCALLTYPE CompleteMachineDataRecord(LONG lMachineDataID) = 0;

  // The hint for unlocked reads of the connected dialect: a text (VT_BSTR, often empty), VT_EMPTY when the
  // dialect is unknown. The caller clears it.
  virtual HRESULT STDMETHODCALLTYPE GetNoLock(VARIANT* result) = 0;

 protected:
  ~_CKXData7Obj() = default;
};

// A second interface of the same object, for tools that examine an installation. Its methods leave nothing
// behind in the database. They answer as the methods of _CKXData7Obj do.
struct IKXData7Diagnosis : IUnknown {
  // The clock of the database, by which events are queued, as "YYYY-MM-DD HH:MM:SS".
  virtual HRESULT STDMETHODCALLTYPE GetServerTime(BSTR* result) = 0;

  // Tries one kind of the statements that the component writes in the connected dialect; what it writes is
  // rolled back. `*name` says which kind, `*strError` why it failed and is a null BSTR when it did not. Kinds
  // are counted from 0; S_FALSE for a `lIndex` that is none.
  virtual HRESULT STDMETHODCALLTYPE TryStatements(LONG lIndex, BSTR* name, BSTR* strError) = 0;

 protected:
  ~IKXData7Diagnosis() = default;
};

// ---- A small C++ client ----

namespace kxdata7 {

using OleString = std::basic_string<OLECHAR>;
using OleStringView = std::basic_string_view<OLECHAR>;

// Between UTF-16 and UTF-8. What is no valid text becomes U+FFFD.
inline std::string ToUtf8(OleStringView text) {
  using Codec = std::codecvt<char16_t, char8_t, std::mbstate_t>;
  const Codec& codec = std::use_facet<Codec>(std::locale::classic());
  const std::u16string units(text.begin(), text.end());
  std::u8string bytes(units.size() * 3, u8'\0');
  const char16_t* from = units.data();
  const char16_t* const from_end = from + units.size();
  char8_t* to = bytes.data();
  for (;;) {
    std::mbstate_t state{};
    codec.out(state, from, from_end, from, to, bytes.data() + bytes.size(), to);
    if (from == from_end) break;
    for (const char8_t byte : {u8'\xEF', u8'\xBF', u8'\xBD'}) *to++ = byte;
    ++from;
  }
  return {bytes.data(), to};
}

inline OleString FromUtf8(std::string_view text) {
  using Codec = std::codecvt<char16_t, char8_t, std::mbstate_t>;
  const Codec& codec = std::use_facet<Codec>(std::locale::classic());
  const std::u8string bytes(text.begin(), text.end());
  std::u16string units(bytes.size(), u'\0');
  const char8_t* from = bytes.data();
  const char8_t* const from_end = from + bytes.size();
  char16_t* to = units.data();
  for (;;) {
    std::mbstate_t state{};
    codec.in(state, from, from_end, from, to, units.data() + units.size(), to);
    if (from == from_end) break;
    *to++ = u'\uFFFD';
    ++from;
  }
  return {units.data(), to};
}

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
  static Bstr FromUtf8(std::string_view text) { return Bstr(OleStringView(kxdata7::FromUtf8(text))); }
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
// root has not, and then the machine's. A registration goes to the first.
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
    Library result(loader::Open(file.has_parent_path() ? std::filesystem::absolute(file) : file));
    if (result.handle_ == nullptr) {
      const auto name = file.u8string();
      throw std::runtime_error("Cannot load the component: " + loader::LastError({name.begin(), name.end()}));
    }
    result.get_class_object_ = result.Symbol<decltype(&DllGetClassObject)>("DllGetClassObject");
    result.can_unload_now_ = result.Symbol<decltype(&DllCanUnloadNow)>("DllCanUnloadNow");
#ifndef _WIN32
    result.get_error_info_ = result.Symbol<decltype(&GetErrorInfo)>("GetErrorInfo");
#endif
    return result;
  }

  // By the class's registration.
  static Library Registered() {
    const auto file = RegisteredFile();
    if (!file.empty()) return Load(file);
    throw std::runtime_error("The class KXData7.CKXData7Obj is not registered in " + RegistrationPlaces());
  }

  Library(Library&& other) noexcept
      : handle_(std::exchange(other.handle_, nullptr)),
        get_class_object_(other.get_class_object_),
        can_unload_now_(other.can_unload_now_),
        get_error_info_(other.get_error_info_) {}
  Library& operator=(Library&&) = delete;
  ~Library() {
    const bool in_use = can_unload_now_ != nullptr && can_unload_now_() != S_OK;
    if (handle_ != nullptr && !in_use) loader::Close(handle_);
  }

  // A new object, not connected.
  ComPtr<_CKXData7Obj> Create() const {
    ComPtr<IClassFactory> factory;
    void** out = reinterpret_cast<void**>(factory.out());
    Check(get_class_object_(CLSID_CKXData7Obj, IID_IClassFactory, out));
    ComPtr<_CKXData7Obj> result;
    out = reinterpret_cast<void**>(result.out());
    Check(factory->CreateInstance(nullptr, IID__CKXData7Obj, out));
    return result;
  }

  // Why the calling thread's last call failed, null when it gave no reason. It is told once.
  Bstr TakeErrorText() const {
    Bstr text;
    ComPtr<IErrorInfo> info;
    if (get_error_info_(0, info.out()) == S_OK) info->GetDescription(text.out());
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
  void Register() const { Check(Symbol<decltype(&DllRegisterServer)>("DllRegisterServer")()); }
  void Unregister() const { Check(Symbol<decltype(&DllUnregisterServer)>("DllUnregisterServer")()); }

#ifndef _WIN32
  void SetYieldHook(void (*hook)()) const { Symbol<decltype(&KXSetYieldHook)>("KXSetYieldHook")(hook); }
#endif

 private:
  explicit Library(loader::Handle handle) : handle_(handle) {}

  template <class Function>
  Function Symbol(const char* name) const {
    void* const address = loader::Find(handle_, name);
    if (address == nullptr) throw std::runtime_error("Not the component: " + loader::LastError(name));
    return reinterpret_cast<Function>(address);
  }

  loader::Handle handle_;
  decltype(&DllGetClassObject) get_class_object_ = nullptr;
  decltype(&DllCanUnloadNow) can_unload_now_ = nullptr;
#ifdef _WIN32
  decltype(&GetErrorInfo) get_error_info_ = &GetErrorInfo;
#else
  decltype(&GetErrorInfo) get_error_info_ = nullptr;
#endif
};

}  // namespace kxdata7

#endif  // KXDATA7_H_
