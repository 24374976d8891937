// COM's binary interface as it is on x86-64, for Linux: the names and layouts of the system headers of
// Windows, from the standard library alone. KXData7.h includes it.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

// ---- Types ----

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

// ---- Results ----

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

// ---- Interfaces ----
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

// ---- Automation helpers ----
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
