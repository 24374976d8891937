#include "component/kxdata7_object.h"

#include <exception>
#include <new>
#include <string>
#include <utility>

#include "com/error_info.h"
#include "com/platform.h"
#include "component/invoke.h"
#include "machinedata/completion.h"
#include "machinedata/records.h"
#include "mdclog/append.h"
#include "mdclog/dispatch.h"
#include "mdclog/statement_trials.h"
#include "session/sql_dialect.h"
#include "session/transaction.h"
#include "shifts/current_record.h"

namespace kx {
namespace {

std::string ToText(BSTR text) { return kxdata7::ToUtf8({text, SysStringLen(text)}); }

VARIANT_BOOL ToVariantBool(bool value) { return value ? VARIANT_TRUE : VARIANT_FALSE; }

HRESULT RefuseNullPointer() noexcept {
  return com::Fail(E_POINTER, "A pointer for a result or an error text is null.");
}

// Ends a transaction that a call leaves open. Closing the connection ends it where rolling back cannot.
class TransactionEnd {
 public:
  explicit TransactionEnd(Session& session) : session_(session) {}
  TransactionEnd(const TransactionEnd&) = delete;
  TransactionEnd& operator=(const TransactionEnd&) = delete;
  ~TransactionEnd() {
    if (!session_.connection.in_transaction()) return;
    try {
      if (RollbackTransaction(session_)) return;
    } catch (...) {
      // Out of memory.
    }
    session_.connection.Close();
  }

 private:
  Session& session_;
};

// Runs one call. Its outcome is told last, since the yield hook may call other objects meanwhile.
template <class Work>
HRESULT Guarded(Session& session, Work& work) noexcept {
  try {
    const TransactionEnd end(session);
    work();
  } catch (const std::bad_alloc&) {
    return com::Fail(E_OUTOFMEMORY, "Out of memory");
  } catch (const std::exception& error) {
    return com::Fail(E_FAIL, error.what());
  } catch (...) {
    return com::Fail(E_FAIL, "Unknown error");
  }
  return com::Succeed();
}

}  // namespace

template <class Work>
HRESULT CKXData7Obj::Run(Work work) noexcept {
  if (busy_.exchange(true)) {
    return com::Fail(RPC_E_SERVERCALL_RETRYLATER, "The object is working for another call.");
  }
  // The yield hook may let the client release its last reference.
  AddRef();
  const HRESULT result = Guarded(session_, work);
  busy_ = false;
  Release();
  return result;
}

template <class Result, class Work>
HRESULT CKXData7Obj::RunForResult(Result* result, Work work) noexcept {
  if (result == nullptr) return RefuseNullPointer();
  *result = {};
  return Run([&] { *result = work(); });
}

template <class Work>
HRESULT CKXData7Obj::RunWithText(BSTR* text, VARIANT_BOOL* result, Work work) noexcept {
  if (text == nullptr) {
    if (result != nullptr) *result = VARIANT_FALSE;
    return RefuseNullPointer();
  }
  return RunForResult(result, [&] {
    const std::string before = ToText(*text);
    std::string after = before;
    // Ready beforehand: work that is done must not be reported as out of memory for want of an empty text.
    kxdata7::Bstr replacement{kxdata7::OleStringView()};
    const bool succeeded = work(after);
    if (after != before) {
      if (!after.empty()) replacement = kxdata7::Bstr::FromUtf8(after);
      SysFreeString(std::exchange(*text, replacement.release()));
    }
    return ToVariantBool(succeeded);
  });
}

HRESULT CKXData7Obj::IsConnected(VARIANT_BOOL* result) {
  return RunForResult(result, [&] { return ToVariantBool(kx::IsConnected(session_)); });
}

HRESULT CKXData7Obj::ConnectToDatabase(BSTR strConnectionString, LONG lDatabaseType, BSTR* strError,
                                       VARIANT_BOOL* result) {
  return RunWithText(strError, result, [&](std::string& error) {
    return kx::ConnectToDatabase(session_, ToText(strConnectionString), lDatabaseType, error);
  });
}

HRESULT CKXData7Obj::AppendItemToMDCLog(LONG lDeptID, LONG lLocationID, LONG lGroupID, LONG lMachineID,
                                        LONG lCommandID, BSTR strParam, LONG lCommandTimeCode, BSTR* strError,
                                        VARIANT_BOOL* result) {
  return RunWithText(strError, result, [&](std::string& error) {
    const LogEntry entry{lDeptID,    lLocationID,      lGroupID,        lMachineID,
                         lCommandID, ToText(strParam), lCommandTimeCode};
    return kx::AppendItemToMDCLog(session_, entry, error);
  });
}

HRESULT CKXData7Obj::AppendItemToMDCLogDNC(LONG lDeptVelkarisID, LONG lLocationVelkarisID,
                                           LONG lGroupVelkarisID, LONG lMachineVelkarisID,
                                           LONG lCommandVelkarisID, BSTR strParam, LONG lCommandTimeCode,
                                           BSTR* strError, VARIANT_BOOL* result) {
  return RunWithText(strError, result, [&](std::string& error) {
    const LogEntry numbers{lDeptVelkarisID,    lLocationVelkarisID, lGroupVelkarisID, lMachineVelkarisID,
                           lCommandVelkarisID, ToText(strParam),    lCommandTimeCode};
    return kx::AppendItemToMDCLogDNC(session_, numbers, error);
  });
}

HRESULT CKXData7Obj::DoNextItemFromMDCLog(BSTR* strError, VARIANT_BOOL* result) {
  return RunWithText(strError, result,
                     [&](std::string& error) { return kx::DoNextItemFromMDCLog(session_, error); });
}

HRESULT CKXData7Obj::GetMDCLogCount(LONG* result) {
  return RunForResult(result, [&] { return LONG{kx::GetMDCLogCount(session_)}; });
}

HRESULT CKXData7Obj::CompleteMachineDataRecord(LONG lMachineDataID) {
  return Run([&] { kx::CompleteMachineDataRecord(session_, OpenMachineData(session_, lMachineDataID)); });
}

HRESULT CKXData7Obj::GetNoLock(VARIANT* result) {
  return RunForResult(result, [&] {
    VARIANT value{};
    if (const auto hint = kx::GetNoLock(session_)) {
      value.bstrVal = kxdata7::Bstr::FromUtf8(*hint).release();
      value.vt = VT_BSTR;
    }
    return value;
  });
}

HRESULT CKXData7Obj::GetTypeInfoCount(UINT* pctinfo) {
  if (pctinfo == nullptr) return E_POINTER;
  *pctinfo = com::HasTypeLibraries() ? 1 : 0;
  return S_OK;
}

HRESULT CKXData7Obj::GetTypeInfo(UINT iTInfo, LCID, ITypeInfo** ppTInfo) {
  if (ppTInfo == nullptr) return E_POINTER;
  *ppTInfo = nullptr;
  return iTInfo == 0 ? com::FindTypeInfo(IID__CKXData7Obj, ppTInfo) : DISP_E_BADINDEX;
}

HRESULT CKXData7Obj::GetClassInfo(ITypeInfo** ppTI) {
  return ppTI == nullptr ? E_POINTER : com::FindTypeInfo(CLSID_CKXData7Obj, ppTI);
}

HRESULT CKXData7Obj::GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID, DISPID* rgDispId) {
  if (riid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
  return FindMethods(rgszNames, cNames, rgDispId);
}

HRESULT CKXData7Obj::Invoke(DISPID dispIdMember, REFIID riid, LCID, WORD wFlags, DISPPARAMS* pDispParams,
                            VARIANT* pVarResult, EXCEPINFO* pExcepInfo, UINT* puArgErr) {
  if (riid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
  return InvokeMethod(*this, dispIdMember, wFlags, pDispParams, pVarResult, pExcepInfo, puArgErr);
}

HRESULT CKXData7Obj::InterfaceSupportsErrorInfo(REFIID riid) {
  const bool supports = riid == IID__CKXData7Obj || riid == IID_IDispatch || riid == IID_IKXData7Diagnosis;
  return supports ? S_OK : S_FALSE;
}

HRESULT CKXData7Obj::GetServerTime(BSTR* result) {
  return RunForResult(
      result, [&] { return kxdata7::Bstr::FromUtf8(kx::GetServerTime(session_).ToText()).release(); });
}

HRESULT CKXData7Obj::TryStatements(LONG lIndex, BSTR* name, BSTR* strError) {
  if (name == nullptr || strError == nullptr) return RefuseNullPointer();
  *name = *strError = nullptr;
  const StatementTrial* const trial = FindStatementTrial(lIndex);
  if (trial == nullptr) return S_FALSE;
  return Run([&] {
    const std::string error = RunStatementTrial(session_, *trial);
    kxdata7::Bstr name_text = kxdata7::Bstr::FromUtf8(trial->name);
    if (!error.empty()) *strError = kxdata7::Bstr::FromUtf8(error).release();
    *name = name_text.release();
  });
}

HRESULT CKXData7Obj::GetShiftAt(LONG lMachineID, BSTR strTime, LONG* shiftID, BSTR* from, BSTR* until,
                                BSTR* chartDate) {
  if (shiftID == nullptr || from == nullptr || until == nullptr || chartDate == nullptr)
    return RefuseNullPointer();
  *shiftID = 0;
  *from = *until = *chartDate = nullptr;
  return Run([&] {
    const DateTime moment = Value(ToText(strTime)).ToDateTime();
    const ShiftInfo shift = kx::GetShiftAt(session_, lMachineID, moment);
    const auto text = [](DateTime time) { return kxdata7::Bstr::FromUtf8(time.ToText()); };
    kxdata7::Bstr from_text = text(shift.start), until_text = text(shift.end),
                  date_text = text(shift.chart_date);
    *shiftID = shift.shift_id;
    *from = from_text.release();
    *until = until_text.release();
    *chartDate = date_text.release();
  });
}

void* CKXData7Obj::FindInterface(REFIID iid) {
  if (iid == IID_IUnknown || iid == IID_IDispatch || iid == IID__CKXData7Obj) {
    return static_cast<_CKXData7Obj*>(this);
  }
  if (iid == IID_IKXData7Diagnosis) return static_cast<IKXData7Diagnosis*>(this);
  if (iid == IID_IProvideClassInfo && com::HasTypeLibraries()) return static_cast<IProvideClassInfo*>(this);
  return iid == IID_ISupportErrorInfo ? static_cast<ISupportErrorInfo*>(this) : nullptr;
}

}  // namespace kx
