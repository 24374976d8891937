// Every allocation of a call fails once.

#include <gtest/gtest.h>

#include <functional>

#include "database/text.h"
#include "tests/support/failing_memory.h"
#include "tests/support/interrupted_event.h"
#include "tests/support/long_run.h"

namespace kx::test {
namespace {

using kxdata7::Bstr;

// What a client passes and gets back, for one call at a time.
struct Call {
  HRESULT result = S_OK;
  bool failed = false;  // whether an allocation did
  VARIANT_BOOL done = VARIANT_FALSE;
  Bstr error{u"left from before"};
};

template <class Work>
Call CallWithFailure(long n, Work work) {
  Call call;
  const FailingMemory memory(n);
  call.result = work(call);
  call.failed = memory.failed();
  return call;
}

// A failed call says so, has no result and leaves the client's text.
void ExpectOutOfMemory(const Call& call) {
  EXPECT_EQ(call.result, E_OUTOFMEMORY);
  EXPECT_EQ(call.done, VARIANT_FALSE);
  EXPECT_EQ(call.error.ToUtf8(), "left from before");
}

class MemoryTest : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(DatabaseTypes, MemoryTest, testing::Values(0, 1, 2));

// On a connection whose statements are prepared, and on a new one.
TEST_P(MemoryTest, EventsGoThroughLater) {
  int allocations = 0;
  int twice = 0;
  for (const HandlerCase& event : InterruptionCases()) {
    SCOPED_TRACE(event.event);
    InterruptedEvent interrupted(GetParam(), event);
    Plant& plant = interrupted.plant;
    for (const bool prepared : {true, false}) {
      for (long n = 1 + GetParam();; n += Stride(101)) {
        SCOPED_TRACE(n);
        interrupted.Restore();
        if (!prepared) plant.component.Connect(plant.connection_string(), kxdata7::Dialect{GetParam()});
        const Call call = CallWithFailure(
            n, [&](Call& c) { return plant.component->DoNextItemFromMDCLog(c.error.inout(), &c.done); });
        if (!call.failed) break;
        ++allocations;
        if (call.done == VARIANT_FALSE) ExpectOutOfMemory(call);
        twice += interrupted.CheckAndFinish() ? 1 : 0;
        if (HasFailure()) return;
      }
    }
  }
  EXPECT_GT(allocations, 500);
  RecordProperty("allocations", allocations);
  RecordProperty("applied_twice", twice);
}

// An event that an append reports as not queued is not in the log, and one that it reports as queued is.
TEST_P(MemoryTest, AppendsAreAllOrNothing) {
  Plant plant(GetParam(), DatabaseKind::kSqlite);
  const std::string log = "select count(*) from T_SFC_MDC_LOG";
  const Bstr param(u"Größe 7");
  for (const auto method : {&_CKXData7Obj::AppendItemToMDCLog, &_CKXData7Obj::AppendItemToMDCLogDNC}) {
    for (const int command : {1109, -1}) {
      for (const bool prepared : {true, false}) {
        for (long n = 1;; ++n) {
          SCOPED_TRACE(Concat(command, " ", n));
          plant.Execute("delete from T_SFC_MDC_LOG");
          if (!prepared) plant.component.Connect(plant.connection_string(), kxdata7::Dialect{GetParam()});
          _CKXData7Obj& object = *plant.component.operator->();
          const Call call = CallWithFailure(n, [&](Call& c) {
            return (object.*method)(1, 2, 3, 1, command, param.get(), 0, c.error.inout(), &c.done);
          });
          EXPECT_EQ(plant.Query(log), call.done == VARIANT_TRUE ? "1" : "0");
          if (!call.failed) break;
          if (call.done == VARIANT_FALSE) ExpectOutOfMemory(call);
          ASSERT_FALSE(HasFailure());
        }
      }
    }
  }
}

// The other calls, from the making of an object on; afterwards the object does what it did before.
TEST_P(MemoryTest, EveryOtherCall) {
  Plant plant(GetParam(), DatabaseKind::kSqlite);
  plant.Run("07:00 job start J2; 08:00 job end");
  plant.Execute("update T_SFC_MACHINE_DATA set STATUS_CODE = 2 where STOP_TIME is not null");
  const std::string before = plant.Snapshot();
  const Bstr string = Bstr::FromUtf8(plant.connection_string());
  const Bstr param(u"x");
  VARIANT arguments[] = {MakeVariant(VT_R8, 1.5), MakeVariant(VT_BSTR, param.get())};
  std::u16string name = u"GetNoLock";
  LPOLESTR names[] = {name.data()};

  kxdata7::ComPtr<_CKXData7Obj> object = CreateObject();
  const std::function<HRESULT(Call&)> connect = [&](Call& c) {
    return object->ConnectToDatabase(string.get(), GetParam(), c.error.inout(), &c.done);
  };
  const std::function<HRESULT(Call&)> calls[] = {
      [&](Call&) {
        void* made = nullptr;
        const HRESULT result = DllGetClassObject(CLSID_CKXData7Obj, IID_IClassFactory, &made);
        if (FAILED(result)) return result;
        const auto factory = kxdata7::ComPtr<IClassFactory>::Attach(static_cast<IClassFactory*>(made));
        const HRESULT created = factory->CreateInstance(nullptr, IID__CKXData7Obj, &made);
        if (SUCCEEDED(created)) static_cast<_CKXData7Obj*>(made)->Release();
        return created;
      },
      connect,
      [&](Call& c) { return object->IsConnected(&c.done); },
      [&](Call&) {
        LONG count = 0;
        return object->GetMDCLogCount(&count);
      },
      [&](Call&) { return object->CompleteMachineDataRecord(1); },
      [&](Call&) {
        kxdata7::Variant hint;
        return object->GetNoLock(&hint);
      },
      [&](Call&) {
        DISPID id = 0;
        return object->GetIDsOfNames(IID_NULL, names, 1, 0, &id);
      },
      [&](Call&) {
        kxdata7::Variant hint;
        DISPPARAMS none{};
        return object->Invoke(8, IID_NULL, 0, DISPATCH_METHOD, &none, &hint, nullptr, nullptr);
      },
      // A number given for a text, and a text for the error text.
      [&](Call&) {
        VARIANT given[] = {arguments[1], MakeVariant(VT_I4, 0), arguments[0]};
        DISPPARAMS three{given, nullptr, 3, 0};
        return object->Invoke(2, IID_NULL, 0, DISPATCH_METHOD, &three, nullptr, nullptr, nullptr);
      },
  };
  for (std::size_t i = 0; i < std::size(calls); ++i) {
    for (const bool prepared : {true, false}) {
      for (long n = 1;; n += n < 50 ? 1 : Stride(5)) {
        SCOPED_TRACE(Concat("call ", i, ", allocation ", n));
        Call again;
        if (!prepared) object = CreateObject();
        ASSERT_EQ(connect(again), S_OK);
        ASSERT_EQ(again.done, VARIANT_TRUE);
        const Call call = CallWithFailure(n, calls[i]);
        if (!call.failed) break;
        // Where SQLite can do without what it asked for, the call succeeds.
        EXPECT_TRUE(call.result == E_OUTOFMEMORY || call.result == DISP_E_EXCEPTION || call.result == S_OK)
            << std::hex << call.result;
        Call counted;
        EXPECT_EQ(calls[i](counted), S_OK);
        ASSERT_FALSE(HasFailure());
      }
    }
  }
  EXPECT_EQ(plant.Snapshot(), before);
}

}  // namespace
}  // namespace kx::test
