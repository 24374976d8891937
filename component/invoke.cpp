#include "component/invoke.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <new>
#include <span>
#include <string_view>
#include <type_traits>

#include "database/ascii.h"
#include "database/database_error.h"
#include "database/numeric_text.h"

namespace kx {
namespace {

enum class Kind { kNumber, kText, kErrorText };

// A value inside a variant or behind its reference, which is not null.
struct Content {
  VARTYPE type;
  const void* data;

  template <class T>
  T As() const {
    T value;
    std::memcpy(&value, data, sizeof value);
    return value;
  }
  bool missing() const { return type == VT_ERROR && As<SCODE>() == DISP_E_PARAMNOTFOUND; }
};

HRESULT FindContent(VARIANT& variant, Content& content) {
  if ((variant.vt & VT_BYREF) == 0) {
    content = {variant.vt, &variant.llVal};
    return S_OK;
  }
  if (variant.byref == nullptr) return E_POINTER;
  content = {static_cast<VARTYPE>(variant.vt & ~VT_BYREF), variant.byref};
  return S_OK;
}

// Hands a number of any type to `take`, as it is. A currency amount comes as a double.
template <class Take>
HRESULT TakeNumber(const Content& content, Take take) {
  switch (content.type) {
    case VT_I1: take(content.As<signed char>()); break;
    case VT_UI1: take(content.As<BYTE>()); break;
    case VT_I2: take(content.As<SHORT>()); break;
    case VT_UI2: take(content.As<USHORT>()); break;
    case VT_I4:
    case VT_INT: take(content.As<LONG>()); break;
    case VT_UI4:
    case VT_UINT: take(content.As<ULONG>()); break;
    case VT_I8: take(content.As<LONGLONG>()); break;
    case VT_UI8: take(content.As<ULONGLONG>()); break;
    case VT_R4: take(content.As<float>()); break;
    case VT_R8: take(content.As<double>()); break;
    case VT_CY: take(static_cast<double>(content.As<CY>().int64) / 10000); break;
    case VT_BOOL: take(content.As<VARIANT_BOOL>()); break;
    default: return DISP_E_TYPEMISMATCH;
  }
  return S_OK;
}

// One argument, converted to what its parameter takes, for the time of the call.
class Argument {
 public:
  HRESULT Read(VARIANT& given, Kind kind);
  // Gives a variant that was passed by reference the text that the method left.
  void WriteBack();

  LONG number = 0;
  BSTR text = nullptr;
  BSTR* error_text = nullptr;

 private:
  HRESULT ReadNumber(const Content& content);
  HRESULT ReadText(const Content& content);
  HRESULT ReadErrorText(VARIANT& holder, const Content& content, bool in_variable);

  kxdata7::Bstr own_text_;
  VARIANT* write_to_ = nullptr;
  kxdata7::OleString text_before_;
};

HRESULT Argument::Read(VARIANT& given, Kind kind) {
  const bool in_variable = given.vt == (VT_BYREF | VT_VARIANT);
  VARIANT* const holder = in_variable ? given.pvarVal : &given;
  if (holder == nullptr) return E_POINTER;
  Content content{};
  if (const HRESULT result = FindContent(*holder, content); FAILED(result)) return result;
  if (kind == Kind::kErrorText) return ReadErrorText(*holder, content, in_variable);
  if (content.missing()) return DISP_E_PARAMNOTOPTIONAL;
  return kind == Kind::kNumber ? ReadNumber(content) : ReadText(content);
}

HRESULT Argument::ReadNumber(const Content& content) {
  if (content.type == VT_EMPTY) return S_OK;
  try {
    if (content.type != VT_BSTR) {
      return TakeNumber(content, [this](auto value) { number = RoundToInt32(static_cast<double>(value)); });
    }
    const BSTR digits = content.As<BSTR>();
    const auto value = ParseNumericText(kxdata7::ToUtf8({digits, SysStringLen(digits)}));
    if (!value) return DISP_E_TYPEMISMATCH;
    number = RoundToInt32(*value);
    return S_OK;
  } catch (const DatabaseError&) {
    return DISP_E_OVERFLOW;
  }
}

HRESULT Argument::ReadText(const Content& content) {
  if (content.type == VT_EMPTY) return S_OK;
  if (content.type == VT_BSTR) {
    text = content.As<BSTR>();
    return S_OK;
  }
  return TakeNumber(content, [this]<class T>(T value) {
    std::array<char, 32> digits;
    char* end = nullptr;
    if constexpr (std::is_floating_point_v<T>) {
      constexpr int kPrecision = sizeof(T) == sizeof(float) ? 7 : 15;
      end = std::to_chars(digits.begin(), digits.end(), value, std::chars_format::general, kPrecision).ptr;
    } else {
      end = std::to_chars(digits.begin(), digits.end(), value).ptr;
    }
    own_text_ = kxdata7::Bstr::FromUtf8({digits.begin(), end});
    text = own_text_.get();
  });
}

HRESULT Argument::ReadErrorText(VARIANT& holder, const Content& content, bool in_variable) {
  if (holder.vt == (VT_BYREF | VT_BSTR)) {
    error_text = holder.pbstrVal;
    return S_OK;
  }
  error_text = own_text_.inout();
  if (content.missing()) return S_OK;
  // A variable of another type could not take the text.
  if ((holder.vt & VT_BYREF) != 0) return DISP_E_TYPEMISMATCH;
  const HRESULT result = ReadText(content);
  if (content.type == VT_BSTR) own_text_ = kxdata7::Bstr({text, SysStringLen(text)});
  text_before_ = own_text_.view();
  if (in_variable) write_to_ = &holder;
  return result;
}

void Argument::WriteBack() {
  if (write_to_ == nullptr || own_text_.view() == text_before_) return;
  VariantClear(write_to_);
  write_to_->vt = VT_BSTR;
  write_to_->bstrVal = own_text_.release();
}

constexpr std::size_t kMostParameters = 8;
using Arguments = std::array<Argument, kMostParameters>;

struct Method {
  std::string_view name;
  std::span<const Kind> parameters;
  HRESULT (*call)(_CKXData7Obj& object, const Arguments& a, VARIANT& result);
};

// Where a method puts its result, which makes the variant one of that type.
VARIANT_BOOL* Boolean(VARIANT& result) {
  result.vt = VT_BOOL;
  return &result.boolVal;
}

LONG* Number(VARIANT& result) {
  result.vt = VT_I4;
  return &result.lVal;
}

constexpr Kind kRecord[] = {Kind::kNumber};
constexpr Kind kErrorText[] = {Kind::kErrorText};
constexpr Kind kConnection[] = {Kind::kText, Kind::kNumber, Kind::kErrorText};
constexpr Kind kEvent[] = {Kind::kNumber, Kind::kNumber, Kind::kNumber, Kind::kNumber,
                           Kind::kNumber, Kind::kText,   Kind::kNumber, Kind::kErrorText};
static_assert(std::size(kEvent) == kMostParameters);

// A method's id is its place in the table, counted from 1.
constexpr Method kMethods[] = {
    {"IsConnected",
     {},
     [](_CKXData7Obj& object, const Arguments&, VARIANT& result) {
       return object.IsConnected(Boolean(result));
     }},
    {"ConnectToDatabase", kConnection,
     [](_CKXData7Obj& object, const Arguments& a, VARIANT& result) {
       return object.ConnectToDatabase(a[0].text, a[1].number, a[2].error_text, Boolean(result));
     }},
    {"AppendItemToMDCLog", kEvent,
     [](_CKXData7Obj& object, const Arguments& a, VARIANT& result) {
       return object.AppendItemToMDCLog(a[0].number, a[1].number, a[2].number, a[3].number, a[4].number,
                                        a[5].text, a[6].number, a[7].error_text, Boolean(result));
     }},
    {"AppendItemToMDCLogDNC", kEvent,
     [](_CKXData7Obj& object, const Arguments& a, VARIANT& result) {
       return object.AppendItemToMDCLogDNC(a[0].number, a[1].number, a[2].number, a[3].number, a[4].number,
                                           a[5].text, a[6].number, a[7].error_text, Boolean(result));
     }},
    {"DoNextItemFromMDCLog", kErrorText,
     [](_CKXData7Obj& object, const Arguments& a, VARIANT& result) {
       return object.DoNextItemFromMDCLog(a[0].error_text, Boolean(result));
     }},
    {"GetMDCLogCount",
     {},
     [](_CKXData7Obj& object, const Arguments&, VARIANT& result) {
       return object.GetMDCLogCount(Number(result));
     }},
    {"CompleteMachineDataRecord", kRecord,
     [](_CKXData7Obj& object, const Arguments& a, VARIANT&) {
       return object.CompleteMachineDataRecord(a[0].number);
     }},
    {"GetNoLock",
     {},
     [](_CKXData7Obj& object, const Arguments&, VARIANT& result) { return object.GetNoLock(&result); }},
};

// The method of an id that is called by `flags`, null when there is none. Some clients ask for a method and a
// property at once.
const Method* FindMethod(DISPID id, WORD flags) {
  if (id < 1 || id > static_cast<DISPID>(std::size(kMethods))) return nullptr;
  if ((flags & DISPATCH_METHOD) == 0) return nullptr;
  return &kMethods[id - 1];
}

HRESULT ReadArguments(const Method& method, const DISPPARAMS& given, Arguments& arguments,
                      UINT* bad_argument) {
  if (given.cNamedArgs != 0) return DISP_E_NONAMEDARGS;
  if (given.cArgs != method.parameters.size()) return DISP_E_BADPARAMCOUNT;
  if (given.cArgs != 0 && given.rgvarg == nullptr) return E_POINTER;
  for (UINT i = 0; i < given.cArgs; ++i) {
    const UINT place = given.cArgs - 1 - i;
    const HRESULT result = arguments[i].Read(given.rgvarg[place], method.parameters[i]);
    if (FAILED(result)) {
      if (bad_argument != nullptr) *bad_argument = place;
      return result;
    }
  }
  return S_OK;
}

// Moves what the thread's error info says to `exception`.
void DescribeFailure(HRESULT failure, EXCEPINFO& exception) {
  exception = {};
  exception.scode = failure;
  kxdata7::ComPtr<IErrorInfo> info;
  if (GetErrorInfo(0, info.out()) != S_OK) return;
  info->GetSource(&exception.bstrSource);
  info->GetDescription(&exception.bstrDescription);
}

}  // namespace

HRESULT FindMethods(LPOLESTR* names, UINT count, DISPID* ids) noexcept {
  if (names == nullptr || ids == nullptr) return E_POINTER;
  if (count == 0) return E_INVALIDARG;
  std::fill_n(ids, count, DISPID_UNKNOWN);
  if (names[0] == nullptr) return E_POINTER;
  try {
    const std::string name = kxdata7::ToUtf8(names[0]);
    const auto found = std::ranges::find_if(
        kMethods, [&](const Method& method) { return EqualsIgnoringCase(method.name, name); });
    if (found == std::end(kMethods)) return DISP_E_UNKNOWNNAME;
    ids[0] = static_cast<DISPID>(found - std::begin(kMethods)) + 1;
    return count == 1 ? S_OK : DISP_E_UNKNOWNNAME;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT InvokeMethod(_CKXData7Obj& object, DISPID id, WORD flags, DISPPARAMS* given, VARIANT* result,
                     EXCEPINFO* exception, UINT* bad_argument) noexcept {
  if (result != nullptr) VariantInit(result);
  const Method* const method = FindMethod(id, flags);
  if (method == nullptr) return DISP_E_MEMBERNOTFOUND;
  if (given == nullptr) return E_POINTER;
  try {
    Arguments arguments;
    if (const HRESULT read = ReadArguments(*method, *given, arguments, bad_argument); FAILED(read))
      return read;
    kxdata7::Variant returned;
    const HRESULT called = method->call(object, arguments, returned);
    for (Argument& argument : arguments) argument.WriteBack();
    if (FAILED(called)) {
      if (exception != nullptr) DescribeFailure(called, *exception);
      return DISP_E_EXCEPTION;
    }
    if (result != nullptr) std::swap<VARIANT>(*result, returned);
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace kx
