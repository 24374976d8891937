// IDispatch with any method and any arguments. Each argument takes a byte for its type, one for how it is
// given and eight for its value.

#include <array>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "fuzz/demo_plant.h"

namespace {

using kx::fuzz::DemoPlant;
using kx::fuzz::Require;

class Input {
 public:
  explicit Input(std::string_view bytes) : bytes_(bytes) {}
  unsigned char Byte() { return static_cast<unsigned char>(Take(1)[0]); }
  std::string Take(std::size_t size) {
    std::string taken(bytes_.substr(0, size));
    bytes_.remove_prefix(taken.size());
    taken.resize(size);
    return taken;
  }

 private:
  std::string_view bytes_;
};

// Arguments with what they refer to, alive for one call.
class Arguments {
 public:
  VARIANT Make(Input& input) {
    static constexpr VARTYPE kTypes[] = {VT_EMPTY, VT_NULL, VT_I2,   VT_I4,   VT_R4,   VT_R8,    VT_CY,
                                         VT_DATE,  VT_BSTR, VT_BSTR, VT_BSTR, VT_BOOL, VT_ERROR, VT_I1,
                                         VT_UI1,   VT_UI2,  VT_UI4,  VT_I8,   VT_UI8,  VT_INT,   VT_UINT};
    VARIANT& variant = static_cast<VARIANT&>(owned_.emplace_back());
    const unsigned char type = input.Byte();
    const unsigned char way = input.Byte() % 8;
    // A type of no meaning comes with null, whatever it might point to.
    variant.vt = type < 240 ? kTypes[type % std::size(kTypes)] : static_cast<VARTYPE>(type << 5);
    const std::string value = input.Take(sizeof variant.llVal);
    if (variant.vt == VT_BSTR) {
      variant.bstrVal = way == 7 ? nullptr : Text(input, value).release();
    } else if (type < 240) {
      std::memcpy(&variant.llVal, value.data(), value.size());
    }
    VARIANT reference{};
    if (way < 3) {
      return variant;
    } else if (way == 3) {
      reference.vt = static_cast<VARTYPE>(variant.vt | VT_BYREF);
      reference.byref = nullptr;
    } else if (way < 6) {
      reference.vt = static_cast<VARTYPE>(variant.vt | VT_BYREF);
      reference.byref = &variant.llVal;
    } else {
      reference.vt = VT_VARIANT | VT_BYREF;
      reference.pvarVal = &variant;
    }
    return reference;
  }

 private:
  static kxdata7::Bstr Text(Input& input, const std::string& value) {
    const std::size_t length = static_cast<unsigned char>(value[0]) % 64;
    const std::string bytes = input.Take(length * sizeof(char16_t));
    std::u16string units(length, u'\0');
    std::memcpy(units.data(), bytes.data(), bytes.size());
    return kxdata7::Bstr(units);
  }

  std::deque<kxdata7::Variant> owned_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static auto& plant = *new DemoPlant;
  Input input({reinterpret_cast<const char*>(data), size});
  plant.Reset();
  plant.Connect(input.Byte() % 4);
  Arguments arguments;
  const DISPID id = input.Byte() % 10;
  const WORD flags = input.Byte() % 4 != 0 ? DISPATCH_METHOD : WORD{input.Byte()};
  static constexpr std::array<UINT, 10> kCounts = {0, 0, 3, 8, 8, 1, 0, 1, 0, 2};
  const unsigned char shape = input.Byte();
  const UINT count = shape % 8 != 0 ? kCounts[static_cast<std::size_t>(id)] : shape / 8;
  std::vector<VARIANT> given;
  for (UINT i = 0; i < count; ++i) given.push_back(arguments.Make(input));
  DISPPARAMS params{given.data(), nullptr, count, shape == 255 ? 1U : 0U};

  kxdata7::Variant result;
  EXCEPINFO exception{};
  UINT bad_argument = count;
  const HRESULT outcome =
      plant.component->Invoke(id, IID_NULL, 0, flags, &params, &result, &exception, &bad_argument);
  const auto source = kxdata7::Bstr::Attach(exception.bstrSource);
  const auto description = kxdata7::Bstr::Attach(exception.bstrDescription);
  switch (outcome) {
    case S_OK:
    case DISP_E_MEMBERNOTFOUND:
    case DISP_E_BADPARAMCOUNT:
    case DISP_E_NONAMEDARGS: break;
    case DISP_E_EXCEPTION: Require(!description.view().empty(), "an exception is described"); break;
    case E_POINTER:
    case DISP_E_TYPEMISMATCH:
    case DISP_E_OVERFLOW:
    case DISP_E_PARAMNOTOPTIONAL: Require(bad_argument < count, "the bad argument is named"); break;
    default: Require(false, "a result of Invoke");
  }
  if (outcome != S_OK) Require(result.vt == VT_EMPTY, "a failure has no result");
  return 0;
}
