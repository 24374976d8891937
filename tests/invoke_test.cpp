// IDispatch: names, arguments of every type, and failures as automation clients see them.
#include <limits>

#include "tests/support/plant.h"

namespace {

using namespace kx::test;
using kxdata7::Bstr;

constexpr const char* kClosed = "Operation is not allowed when the object is closed.";

VARIANT Number(LONG value) { return MakeVariant(VT_I4, value); }
VARIANT Text(const Bstr& text) { return MakeVariant(VT_BSTR, text.get()); }
const VARIANT kMissing = MakeVariant(VT_ERROR, DISP_E_PARAMNOTFOUND);

TEST(Invoke, NamesAreFoundInAnyCase) {
  const auto object = CreateObject();
  const struct {
    std::vector<kxdata7::OleString> names;
    std::vector<DISPID> ids;
  } cases[] = {
      {{OLESTR("ISCONNECTED")}, {1}},
      {{OLESTR("connectToDatabase")}, {2}},
      {{OLESTR("AppendItemToMDCLog")}, {3}},
      {{OLESTR("AppendItemToMDCLogDNC")}, {4}},
      {{OLESTR("DoNextItemFromMDCLog")}, {5}},
      {{OLESTR("getmdclogcount")}, {6}},
      {{OLESTR("CompleteMachineDataRecord")}, {7}},
      {{OLESTR("GetNoLock")}, {8}},
      {{OLESTR("GetNoLoc")}, {DISPID_UNKNOWN}},
      {{OLESTR("")}, {DISPID_UNKNOWN}},
      {{OLESTR("DoNextItemFromMDCLog"), OLESTR("strError")}, {5, DISPID_UNKNOWN}},
  };
  for (auto given : cases) {
    std::vector<LPOLESTR> names;
    for (auto& name : given.names) names.push_back(name.data());
    std::vector<DISPID> ids(names.size(), 99);
    const auto count = static_cast<UINT>(names.size());
    const bool known = given.ids.back() != DISPID_UNKNOWN;
    EXPECT_EQ(object->GetIDsOfNames(IID_NULL, names.data(), count, 0x407, ids.data()),
              known ? S_OK : DISP_E_UNKNOWNNAME);
    EXPECT_EQ(ids, given.ids);
  }
  DISPID id = 0;
  LPOLESTR none = nullptr;
  EXPECT_EQ(object->GetIDsOfNames(IID_NULL, nullptr, 1, 0, &id), E_POINTER);
  EXPECT_EQ(object->GetIDsOfNames(IID_NULL, &none, 1, 0, nullptr), E_POINTER);
  EXPECT_EQ(object->GetIDsOfNames(IID_NULL, &none, 1, 0, &id), E_POINTER);
  EXPECT_EQ(object->GetIDsOfNames(IID_IDispatch, &none, 1, 0, &id), DISP_E_UNKNOWNINTERFACE);
}

TEST(Invoke, WrongCallsAreToldApart) {
  const auto object = CreateObject();
  DISPID name = 0;
  VARIANT one = Number(1);
  DISPPARAMS none{}, single{&one, nullptr, 1, 0}, named{&one, &name, 1, 1}, null_list{nullptr, nullptr, 1, 0};
  const struct {
    DISPID id;
    const IID* iid;
    WORD flags;
    DISPPARAMS* arguments;
    HRESULT result;
  } cases[] = {
      {0, &IID_NULL, DISPATCH_METHOD, &none, DISP_E_MEMBERNOTFOUND},
      {9, &IID_NULL, DISPATCH_METHOD, &none, DISP_E_MEMBERNOTFOUND},
      {DISPID_UNKNOWN, &IID_NULL, DISPATCH_METHOD, &none, DISP_E_MEMBERNOTFOUND},
      {1, &IID_NULL, DISPATCH_PROPERTYGET, &none, DISP_E_MEMBERNOTFOUND},
      {7, &IID_NULL, DISPATCH_PROPERTYPUT, &single, DISP_E_MEMBERNOTFOUND},
      {1, &IID_NULL, DISPATCH_METHOD | DISPATCH_PROPERTYGET, &none, S_OK},
      {1, &IID_IDispatch, DISPATCH_METHOD, &none, DISP_E_UNKNOWNINTERFACE},
      {1, &IID_NULL, DISPATCH_METHOD, nullptr, E_POINTER},
      {7, &IID_NULL, DISPATCH_METHOD, &null_list, E_POINTER},
      {7, &IID_NULL, DISPATCH_METHOD, &named, DISP_E_NONAMEDARGS},
      {7, &IID_NULL, DISPATCH_METHOD, &none, DISP_E_BADPARAMCOUNT},
      {1, &IID_NULL, DISPATCH_METHOD, &single, DISP_E_BADPARAMCOUNT},
      {7, &IID_NULL, DISPATCH_METHOD, &single, DISP_E_EXCEPTION},
  };
  for (const auto& given : cases) {
    const HRESULT result =
        object->Invoke(given.id, *given.iid, 0, given.flags, given.arguments, nullptr, nullptr, nullptr);
    EXPECT_EQ(result, given.result) << "id " << given.id << ", flags " << given.flags;
  }
}

TEST(Invoke, FailureIsDescribed) {
  const auto object = CreateObject();
  const auto failed = InvokeById(*object, 6, {});
  EXPECT_EQ(failed.result, DISP_E_EXCEPTION);
  EXPECT_EQ(static_cast<HRESULT>(failed.code), E_FAIL);
  EXPECT_EQ(failed.source.ToUtf8(), "KXData7.CKXData7Obj");
  EXPECT_EQ(failed.description.ToUtf8(), kClosed);
  EXPECT_EQ(failed.value.vt, VT_EMPTY);
  EXPECT_EQ(TakeThreadError(), "") << "it moved to the description";
}

TEST(Invoke, ErrorTextGoesBackWhereItCan) {
  const auto object = CreateObject();
  const auto next = [&](const VARIANT& error) { return InvokeById(*object, 5, {error}).result; };

  Bstr direct(OLESTR("old"));
  EXPECT_EQ(next(MakeVariant(VT_BYREF | VT_BSTR, direct.inout())), S_OK);
  EXPECT_EQ(direct.ToUtf8(), kClosed);

  Bstr behind_variable;
  const struct {
    VARIANT before;
    HRESULT result;
  } variables[] = {
      {VARIANT{}, S_OK},
      {Number(5), S_OK},
      {MakeVariant(VT_BSTR, Bstr(OLESTR("old")).release()), S_OK},
      {MakeVariant(VT_BYREF | VT_BSTR, behind_variable.inout()), S_OK},
      {MakeVariant(VT_NULL, 0), DISP_E_TYPEMISMATCH},
      {MakeVariant(VT_DISPATCH, static_cast<IDispatch*>(nullptr)), DISP_E_TYPEMISMATCH},
      {MakeVariant(VT_BYREF | VT_VARIANT, static_cast<VARIANT*>(nullptr)), E_POINTER},
  };
  for (const auto& given : variables) {
    SCOPED_TRACE(given.before.vt);
    kxdata7::Variant variable;
    static_cast<VARIANT&>(variable) = given.before;
    EXPECT_EQ(next(MakeVariant(VT_BYREF | VT_VARIANT, static_cast<VARIANT*>(&variable))), given.result);
    const bool taken = given.result == S_OK && (given.before.vt & VT_BYREF) == 0;
    ASSERT_EQ(variable.vt, taken ? VARTYPE{VT_BSTR} : given.before.vt);
    if (taken) {
      EXPECT_EQ(kxdata7::ToUtf8(variable.bstrVal), kClosed);
    }
  }
  EXPECT_EQ(behind_variable.ToUtf8(), kClosed);

  // A text that stays as it is leaves the variable as it is.
  const Bstr memory(OLESTR("Provider=SQLite;Data Source=:memory:"));
  VARIANT five = Number(5);
  const VARIANT reference = MakeVariant(VT_BYREF | VT_VARIANT, &five);
  EXPECT_EQ(InvokeById(*object, 2, {Text(memory), Number(2), reference}).result, S_OK);
  EXPECT_EQ(five.vt, VT_I4);

  // These get nothing back.
  const Bstr literal(OLESTR("old"));
  LONG number = 5;
  EXPECT_EQ(next(Text(literal)), S_OK);
  EXPECT_EQ(literal.view(), OLESTR("old"));
  EXPECT_EQ(next(kMissing), S_OK);
  EXPECT_EQ(next(MakeVariant(VT_BYREF | VT_I4, &number)), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(next(MakeVariant(VT_BYREF | VT_BSTR, static_cast<BSTR*>(nullptr))), E_POINTER);
}

// An object connected to a plant; each event that it queues can be read back.
class InvokeOnPlant : public testing::Test {
 protected:
  InvokeOutcome Append(const VARIANT& dept, const VARIANT& param) {
    return InvokeById(*object_, 3,
                      {dept, Number(2), Number(3), Number(4), Number(5), param, Number(1), kMissing});
  }
  // Columns of the last event.
  std::string Last(const std::string& columns) {
    return plant_.Query("select " + columns + " from T_SFC_MDC_LOG order by MDC_LOG_ID desc limit 1");
  }

  Plant plant_{2};
  _CKXData7Obj* const object_ = plant_.component.operator->();
};

TEST_F(InvokeOnPlant, ArgumentsReachTheirPlaces) {
  const Bstr param(OLESTR("Größe 7"));
  const auto queued = Append(Number(1), Text(param));
  EXPECT_EQ(queued.result, S_OK);
  EXPECT_EQ(queued.value.vt, VT_BOOL);
  EXPECT_EQ(queued.value.boolVal, VARIANT_TRUE);
  EXPECT_EQ(Last("DEPT_ID, LOCATION_ID, GROUP_ID, MACHINE_ID, COMMAND_ID, PARAM1, COMMAND_TIME_CODE"),
            "1|2|3|4|5|Größe 7|1");
  const auto count = InvokeById(*object_, 6, {});
  EXPECT_EQ(count.value.vt, VT_I4);
  EXPECT_EQ(count.value.lVal, 1);
  EXPECT_EQ(InvokeById(*object_, 8, {}).value.vt, VT_BSTR);
  EXPECT_EQ(InvokeById(*object_, 7, {Number(12345)}).value.vt, VT_EMPTY);
}

TEST_F(InvokeOnPlant, ValuesAreConverted) {
  SHORT reference_target = -12;
  const Bstr digits(OLESTR(" -7.5")), word(OLESTR("7x")), too_large(OLESTR("1e999"));
  BSTR text_target = digits.get();
  VARIANT inner = MakeVariant(VT_R8, 2.5);
  VARIANT inner_reference = MakeVariant(VT_BYREF | VT_VARIANT, &inner);
  const double infinity = std::numeric_limits<double>::infinity();
  const struct {
    VARIANT value;
    const char* as_number;  // or the failure
    const char* as_text;
  } cases[] = {
      {MakeVariant(VT_I1, std::int8_t{-5}), "-5", "-5"},
      {MakeVariant(VT_UI1, BYTE{200}), "200", "200"},
      {MakeVariant(VT_I2, SHORT{-300}), "-300", "-300"},
      {MakeVariant(VT_UI2, USHORT{60000}), "60000", "60000"},
      {MakeVariant(VT_INT, INT{-70000}), "-70000", "-70000"},
      {MakeVariant(VT_UI4, ULONG{2147483648}), "overflow", "2147483648"},
      {MakeVariant(VT_I8, LONGLONG{-2147483648}), "-2147483648", "-2147483648"},
      {MakeVariant(VT_I8, LONGLONG{9007199254740993}), "overflow", "9007199254740993"},
      {MakeVariant(VT_UI8, ULONGLONG{7}), "7", "7"},
      {MakeVariant(VT_R4, 0.1F), "0", "0.1"},
      {MakeVariant(VT_R8, 100000.5), "100000", "100000.5"},
      {MakeVariant(VT_R8, 3.5), "4", "3.5"},
      {MakeVariant(VT_R8, infinity), "overflow", "inf"},
      {MakeVariant(VT_CY, LONGLONG{15000}), "2", "1.5"},
      {MakeVariant(VT_BOOL, VARIANT_TRUE), "-1", "-1"},
      {VARIANT{}, "0", "-"},
      {Text(digits), "-8", " -7.5"},
      {Text(word), "mismatch", "7x"},
      {Text(too_large), "overflow", "1e999"},
      {MakeVariant(VT_BYREF | VT_I2, &reference_target), "-12", "-12"},
      {MakeVariant(VT_BYREF | VT_BSTR, &text_target), "-8", " -7.5"},
      {MakeVariant(VT_BYREF | VT_VARIANT, &inner), "2", "2.5"},
      {MakeVariant(VT_BYREF | VT_VARIANT, &inner_reference), "mismatch", "mismatch"},
      {MakeVariant(VT_BYREF | VT_R8, static_cast<double*>(nullptr)), "pointer", "pointer"},
      {MakeVariant(VT_NULL, 0), "mismatch", "mismatch"},
      {MakeVariant(VT_UNKNOWN, static_cast<IUnknown*>(nullptr)), "mismatch", "mismatch"},
      {MakeVariant(0x2000 | VT_I4, static_cast<void*>(nullptr)), "mismatch", "mismatch"},
      {MakeVariant(0x0FFF, 0), "mismatch", "mismatch"},
      {kMissing, "not optional", "not optional"},
      {MakeVariant(VT_ERROR, E_FAIL), "mismatch", "mismatch"},
  };
  const auto outcome = [&](const InvokeOutcome& called, UINT place, const char* column) {
    if (called.result == S_OK) return Last(column);
    EXPECT_EQ(called.bad_argument, place);
    return std::string(called.result == DISP_E_TYPEMISMATCH       ? "mismatch"
                       : called.result == DISP_E_OVERFLOW         ? "overflow"
                       : called.result == DISP_E_PARAMNOTOPTIONAL ? "not optional"
                       : called.result == E_POINTER               ? "pointer"
                                                                  : "another failure");
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.value.vt);
    EXPECT_EQ(outcome(Append(given.value, VARIANT{}), 7, "DEPT_ID"), given.as_number);
    EXPECT_EQ(outcome(Append(Number(1), given.value), 2, "PARAM1"), given.as_text);
  }
  EXPECT_EQ(inner.vt, VT_R8) << "an input stays as it is";
}

}  // namespace
