#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "KXData7.h"

namespace kx::test {

inline kxdata7::ComPtr<IClassFactory> GetFactory() {
  void* factory = nullptr;
  EXPECT_EQ(DllGetClassObject(CLSID_CKXData7Obj, IID_IClassFactory, &factory), S_OK);
  return kxdata7::ComPtr<IClassFactory>::Attach(static_cast<IClassFactory*>(factory));
}

// An object of the component that is linked into the test.
inline kxdata7::ComPtr<_CKXData7Obj> CreateObject() {
  void* object = nullptr;
  EXPECT_EQ(GetFactory()->CreateInstance(nullptr, IID__CKXData7Obj, &object), S_OK);
  return kxdata7::ComPtr<_CKXData7Obj>::Attach(static_cast<_CKXData7Obj*>(object));
}

// The description that the thread's last call left, empty when there is none.
inline std::string TakeThreadError() {
  kxdata7::ComPtr<IErrorInfo> info;
  kxdata7::Bstr text;
  if (GetErrorInfo(0, info.out()) == S_OK) info->GetDescription(text.out());
  return text.ToUtf8();
}

template <class T>
VARIANT MakeVariant(VARTYPE type, T value) {
  VARIANT variant{};
  variant.vt = type;
  std::memcpy(&variant.llVal, &value, sizeof value);
  return variant;
}

struct InvokeOutcome {
  HRESULT result = S_OK;
  UINT bad_argument = 99;
  kxdata7::Variant value;
  DWORD code = 0;
  kxdata7::Bstr source;
  kxdata7::Bstr description;
};

// Calls a method by its id, the arguments in their written order. What they hold stays the caller's.
inline InvokeOutcome InvokeById(_CKXData7Obj& object, DISPID id, std::vector<VARIANT> arguments) {
  std::ranges::reverse(arguments);
  DISPPARAMS given{arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
  EXCEPINFO exception{};
  InvokeOutcome outcome;
  outcome.result = object.Invoke(id, IID_NULL, 0, DISPATCH_METHOD, &given, &outcome.value, &exception,
                                 &outcome.bad_argument);
  outcome.code = static_cast<DWORD>(exception.scode);
  outcome.source = kxdata7::Bstr::Attach(exception.bstrSource);
  outcome.description = kxdata7::Bstr::Attach(exception.bstrDescription);
  return outcome;
}

}  // namespace kx::test
