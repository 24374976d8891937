// The COM class by COM's own rules: slots, interfaces, lifetime, errors, and the boundary of its methods.
#include <functional>
#include <new>
#include <stdexcept>
#include <thread>

#include "session/host.h"
#include "tests/support/plant.h"

namespace {

using namespace kx::test;
using kxdata7::Bstr;
using kxdata7::ComPtr;

constexpr const char* kClosed = "Operation is not allowed when the object is closed.";
const OLECHAR* const kMemory = OLESTR("Provider=SQLite;Data Source=:memory:");

HRESULT Connect(_CKXData7Obj& object, LONG type = 2, const OLECHAR* to = kMemory) {
  Bstr error;
  VARIANT_BOOL result = VARIANT_FALSE;
  return object.ConnectToDatabase(Bstr(to).get(), type, error.inout(), &result);
}

// Calls a slot of the object's function table, as a client in C or a compiler of another language does.
template <class Result = HRESULT, class... Arguments>
Result CallSlot(void* object, std::size_t slot, Arguments... arguments) {
  void** const functions = *static_cast<void***>(object);
  return reinterpret_cast<Result (*)(void*, Arguments...)>(functions[slot])(object, arguments...);
}

TEST(Com, SlotsStandInTheirOrder) {
  const auto object = CreateObject();
  void* const raw = object.get();
  Bstr error;
  VARIANT_BOOL flag = VARIANT_TRUE;
  EXPECT_EQ((CallSlot<ULONG>(raw, 1)), 2u);
  EXPECT_EQ((CallSlot<ULONG>(raw, 2)), 1u);
  void* dispatch = nullptr;
  EXPECT_EQ(CallSlot(raw, 0, &IID_IDispatch, &dispatch), S_OK);
  EXPECT_EQ(dispatch, raw);
  CallSlot<ULONG>(dispatch, 2);

  UINT type_infos = 7;
  EXPECT_EQ(CallSlot(raw, 3, &type_infos), S_OK);
  ITypeInfo* type_info = nullptr;
  EXPECT_EQ(CallSlot(raw, 4, UINT{1}, LCID{0}, &type_info), DISP_E_BADINDEX);
  EXPECT_EQ(type_info, nullptr);
#ifdef _WIN32
  EXPECT_EQ(type_infos, 1u);
  ASSERT_EQ(CallSlot(raw, 4, UINT{0}, LCID{0}, &type_info), S_OK);
  EXPECT_EQ(CallSlot<ULONG>(type_info, 2), 0u);
#else
  EXPECT_EQ(type_infos, 0u);
  EXPECT_EQ(CallSlot(raw, 4, UINT{0}, LCID{0}, &type_info), E_NOTIMPL);
#endif
  kxdata7::OleString name = OLESTR("GetNoLock");
  LPOLESTR names = name.data();
  DISPID id = 0;
  EXPECT_EQ(CallSlot(raw, 5, &IID_NULL, &names, UINT{1}, LCID{0}, &id), S_OK);
  EXPECT_EQ(id, 8);
  DISPPARAMS none{};
  kxdata7::Variant value;
  EXPECT_EQ(
      CallSlot(raw, 6, DISPID{1}, &IID_NULL, LCID{0}, DISPATCH_METHOD, &none, static_cast<VARIANT*>(&value),
               static_cast<EXCEPINFO*>(nullptr), static_cast<UINT*>(nullptr)),
      S_OK);
  EXPECT_EQ(value.vt, VT_BOOL);

  const Bstr memory(kMemory);
  EXPECT_EQ(CallSlot(raw, 8, memory.get(), LONG{2}, error.inout(), &flag), S_OK);
  EXPECT_EQ(flag, VARIANT_TRUE);
  EXPECT_EQ(CallSlot(raw, 7, &flag), S_OK);
  EXPECT_EQ(flag, VARIANT_FALSE) << "a database without the tables";
  const Bstr param(OLESTR("7"));
  for (const std::size_t append : {9u, 10u}) {
    SCOPED_TRACE(append);
    flag = VARIANT_TRUE;
    Connect(*object, 3);  // no dialect: events cannot be stamped
    const HRESULT result = CallSlot(raw, append, LONG{1}, LONG{2}, LONG{3}, LONG{4}, LONG{5}, param.get(),
                                    LONG{0}, error.inout(), &flag);
    EXPECT_EQ(result, append == 9 ? S_OK : E_FAIL);
    EXPECT_EQ(flag, VARIANT_FALSE);
    EXPECT_EQ(append == 9 ? error.ToUtf8() : TakeThreadError(), "Type mismatch");
  }
  EXPECT_EQ(CallSlot(raw, 11, error.inout(), &flag), S_OK);
  LONG count = 5;
  EXPECT_EQ(CallSlot(raw, 12, &count), E_FAIL);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(CallSlot(raw, 13, LONG{1}), E_FAIL);
  EXPECT_EQ(CallSlot(raw, 14, static_cast<VARIANT*>(&value)), S_OK);
  EXPECT_EQ(value.vt, VT_EMPTY);
}

TEST(Com, QueryInterfaceKeepsItsRules) {
  const auto object = CreateObject();
  const auto identity = object.Query<IUnknown>(IID_IUnknown);
  const IID known[] = {IID_IUnknown, IID_IDispatch, IID__CKXData7Obj, IID_ISupportErrorInfo,
                       IID_IKXData7Diagnosis};
  for (const IID& from : known) {
    const auto start = object.Query<IUnknown>(from);
    ASSERT_TRUE(start);
    for (const IID& to : known) EXPECT_TRUE(start.Query<IUnknown>(to));
    EXPECT_EQ(start.Query<IUnknown>(IID_IUnknown).get(), identity.get());
    void* found = this;
    EXPECT_EQ(start->QueryInterface(IID_IClassFactory, &found), E_NOINTERFACE);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(start->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  }
  object->AddRef();
  EXPECT_EQ(object->Release(), 2u);
  const auto support = object.Query<ISupportErrorInfo>(IID_ISupportErrorInfo);
  EXPECT_EQ(support->InterfaceSupportsErrorInfo(IID__CKXData7Obj), S_OK);
  EXPECT_EQ(support->InterfaceSupportsErrorInfo(IID_IClassFactory), S_FALSE);
}

TEST(Com, Diagnosis) {
  const auto object = CreateObject();
  const auto diagnosis = object.Query<IKXData7Diagnosis>(IID_IKXData7Diagnosis);
  Bstr time;
  EXPECT_EQ(diagnosis->GetServerTime(nullptr), E_POINTER);
  EXPECT_EQ(diagnosis->GetServerTime(time.out()), E_FAIL);
  EXPECT_EQ(time.get(), nullptr);
  EXPECT_EQ(TakeThreadError(), kClosed);
  Bstr name, error;
  EXPECT_EQ(diagnosis->TryStatements(0, nullptr, error.out()), E_POINTER);
  EXPECT_EQ(diagnosis->TryStatements(0, name.out(), nullptr), E_POINTER);
  LONG shift = 7;
  EXPECT_EQ(diagnosis->GetShiftAt(1, nullptr, nullptr, time.out(), name.out(), error.out()), E_POINTER);
  EXPECT_EQ(diagnosis->GetShiftAt(1, nullptr, &shift, time.out(), name.out(), error.out()), E_FAIL);
  EXPECT_EQ(shift, 0);
  for (const LONG none : {-1, 1000})
    EXPECT_EQ(diagnosis->TryStatements(none, name.out(), error.out()), S_FALSE);
  EXPECT_EQ(name.get(), nullptr);
  EXPECT_EQ(diagnosis->TryStatements(0, name.out(), error.out()), S_OK);
  EXPECT_EQ(error.ToUtf8(), kClosed);
  EXPECT_NE(name.ToUtf8(), "");
  EXPECT_EQ(Connect(*object.get()), S_OK);
  EXPECT_EQ(diagnosis->GetServerTime(time.out()), S_OK);
  EXPECT_TRUE(kx::DateTime::Parse(time.ToUtf8()));
}

TEST(Com, FactoryAndUnloading) {
  void* out = this;
  EXPECT_EQ(DllGetClassObject(IID_IUnknown, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(DllGetClassObject(CLSID_CKXData7Obj, IID_IDispatch, &out), E_NOINTERFACE);
  EXPECT_EQ(DllGetClassObject(CLSID_CKXData7Obj, IID_IClassFactory, nullptr), E_POINTER);
  SetErrorInfo(0, nullptr);
  EXPECT_EQ(DllCanUnloadNow(), S_OK);

  auto factory = GetFactory();
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE) << "a factory is in use";
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  out = this;
  EXPECT_EQ(factory->CreateInstance(factory.get(), IID_IUnknown, &out), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IErrorInfo, &out), E_NOINTERFACE);
  EXPECT_EQ(factory->LockServer(1), S_OK);
  factory = {};
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE) << "a lock is left";
  GetFactory()->LockServer(0);
  EXPECT_EQ(DllCanUnloadNow(), S_OK);

  auto object = CreateObject();
  LONG count;
  EXPECT_EQ(object->GetMDCLogCount(&count), E_FAIL);
  object = {};
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE) << "an error is still to be fetched";
  EXPECT_EQ(TakeThreadError(), kClosed);
  EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

TEST(Com, NullPointersAreRefusedBeforeAnythingRuns) {
  const auto object = CreateObject();
  Bstr error(OLESTR("kept"));
  VARIANT_BOOL flag = VARIANT_TRUE;
  EXPECT_EQ(object->IsConnected(nullptr), E_POINTER);
  EXPECT_EQ(Connect(*object), S_OK);
  EXPECT_EQ(object->ConnectToDatabase(nullptr, 3, nullptr, &flag), E_POINTER);
  EXPECT_EQ(flag, VARIANT_FALSE);
  EXPECT_EQ(object->ConnectToDatabase(nullptr, 3, error.inout(), nullptr), E_POINTER);
  kxdata7::Variant hint;
  EXPECT_EQ(object->GetNoLock(&hint), S_OK);
  EXPECT_EQ(hint.vt, VT_BSTR) << "the dialect is still the first one";
  EXPECT_EQ(object->AppendItemToMDCLog(1, 1, 1, 1, 1, nullptr, 0, error.inout(), nullptr), E_POINTER);
  EXPECT_EQ(object->AppendItemToMDCLogDNC(1, 1, 1, 1, 1, nullptr, 0, nullptr, &flag), E_POINTER);
  EXPECT_EQ(object->DoNextItemFromMDCLog(nullptr, nullptr), E_POINTER);
  EXPECT_EQ(object->GetMDCLogCount(nullptr), E_POINTER);
  EXPECT_EQ(object->GetNoLock(nullptr), E_POINTER);
  EXPECT_EQ(error.view(), OLESTR("kept"));
  EXPECT_EQ(object->GetTypeInfoCount(nullptr), E_POINTER);
  EXPECT_EQ(object->GetTypeInfo(0, 0, nullptr), E_POINTER);
  EXPECT_EQ(object->ConnectToDatabase(nullptr, 2, error.inout(), &flag), S_OK) << "a null text is empty";
  EXPECT_EQ(flag, VARIANT_FALSE);
}

TEST(Com, ErrorsBelongToTheCallAndTheThread) {
  const auto object = CreateObject();
  LONG count = 5;
  EXPECT_EQ(object->GetMDCLogCount(&count), E_FAIL);
  EXPECT_EQ(count, 0);
  std::thread([] { EXPECT_EQ(TakeThreadError(), ""); }).join();
  ComPtr<IErrorInfo> info;
  ASSERT_EQ(GetErrorInfo(0, info.out()), S_OK);
  Bstr source;
  GUID guid{};
  EXPECT_EQ(info->GetSource(source.out()), S_OK);
  EXPECT_EQ(source.ToUtf8(), "KXData7.CKXData7Obj");
  EXPECT_EQ(info->GetGUID(&guid), S_OK);
  EXPECT_EQ(guid, IID__CKXData7Obj);
  EXPECT_EQ(info->GetDescription(nullptr), E_POINTER);
  EXPECT_TRUE(FAILED(GetErrorInfo(0, nullptr)));

  SetErrorInfo(0, info.get());
  VARIANT_BOOL connected;
  EXPECT_EQ(object->IsConnected(&connected), S_OK);
  EXPECT_EQ(TakeThreadError(), "") << "a call that succeeds leaves none behind";
}

// Puts an engine of the test's own behind the connections, and the real one back at the end.
class ComBoundary : public testing::Test {
 protected:
  void Serve(std::function<void()> on_open) {
    kx::ProcessHost().open_engine = [on_open](const kx::ConnectionString& to, const kx::Waiting&) {
      on_open();
      return kx::OpenEngine(to);
    };
  }
  void TearDown() override { kx::ProcessHost().open_engine = kx::OpenEngine; }
};

TEST_F(ComBoundary, NoExceptionPasses) {
  const struct {
    std::function<void()> fault;
    HRESULT result;
    const char* text;
  } cases[] = {
      {[] { throw std::bad_alloc(); }, E_OUTOFMEMORY, "Out of memory"},
      {[] { throw std::logic_error("broken"); }, E_FAIL, "broken"},
      {[] { throw 7; }, E_FAIL, "Unknown error"},
  };
  for (const auto& given : cases) {
    Serve(given.fault);
    const auto object = CreateObject();
    EXPECT_EQ(Connect(*object), given.result);
    EXPECT_EQ(TakeThreadError(), given.text);
    VARIANT_BOOL connected = VARIANT_TRUE;
    EXPECT_EQ(object->IsConnected(&connected), S_OK) << "usable again";
    EXPECT_EQ(connected, VARIANT_FALSE);
  }
}

TEST_F(ComBoundary, SecondCallIsRefusedWhileOneRuns) {
  ComPtr<_CKXData7Obj> object;
  const auto call_again = [&] {
    VARIANT_BOOL flag = VARIANT_TRUE;
    Bstr error(OLESTR("kept"));
    EXPECT_EQ(object->ConnectToDatabase(nullptr, 3, error.inout(), &flag), RPC_E_SERVERCALL_RETRYLATER);
    EXPECT_EQ(flag, VARIANT_FALSE);
    EXPECT_EQ(error.view(), OLESTR("kept"));
    EXPECT_EQ(TakeThreadError(), "The object is working for another call.");
  };
  Serve([&] {
    call_again();
    std::thread(call_again).join();
    object = {};  // the last reference of the client
  });
  object = CreateObject();
  _CKXData7Obj& running = *object;
  EXPECT_EQ(Connect(running), S_OK);
  EXPECT_FALSE(object);
  EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

TEST(Com, NoTransactionIsLeftOpen) {
  for (const int failing_rollbacks : {1, 2}) {
    SCOPED_TRACE(failing_rollbacks);
    FakeHost host;
    bool in_transaction = false;
    int rollbacks = 0;
    host.watch.before = [&](EngineCall call, std::string_view) {
      if (call == EngineCall::kBegin) in_transaction = true;
      if (call == EngineCall::kStatement && in_transaction) throw std::bad_alloc();
      if (call != EngineCall::kRollback) return;
      if (++rollbacks <= failing_rollbacks) throw std::bad_alloc();
      in_transaction = false;
    };
    const auto object = CreateObject();
    Connect(*object);
    Bstr error(OLESTR("kept"));
    VARIANT_BOOL queued = VARIANT_TRUE;
    EXPECT_EQ(object->AppendItemToMDCLog(1, 1, 1, 1, 1, nullptr, 0, error.inout(), &queued), E_OUTOFMEMORY);
    EXPECT_EQ(queued, VARIANT_FALSE);
    EXPECT_EQ(error.view(), OLESTR("kept"));
    // Where the transaction could not be rolled back at the second attempt, the connection was closed.
    LONG count = 0;
    EXPECT_EQ(object->GetMDCLogCount(&count), E_FAIL);
    EXPECT_EQ(TakeThreadError() == kClosed, failing_rollbacks == 2);
    EXPECT_EQ(rollbacks, 2);
  }
}

}  // namespace
