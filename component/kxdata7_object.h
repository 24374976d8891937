#pragma once

#include <atomic>

#include "KXData7.h"
#include "com/unknown.h"
#include "session/session.h"

namespace kx {

// The COM class: one client's session behind the binary interface.
//
// Every method passes one boundary (Run and what is built on it), which keeps these promises: null pointers
// are refused before anything runs; one call at a time, a second one is refused and touches nothing; no
// exception and no open transaction leaves a call; a failing call has its text in the thread's error info,
// and a succeeding one leaves none there.
class CKXData7Obj final
    : public com::Unknown<_CKXData7Obj, ISupportErrorInfo, IProvideClassInfo, IKXData7Diagnosis> {
 public:
  HRESULT STDMETHODCALLTYPE IsConnected(VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE ConnectToDatabase(BSTR strConnectionString, LONG lDatabaseType, BSTR* strError,
                                              VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE AppendItemToMDCLog(LONG lDeptID, LONG lLocationID, LONG lGroupID, LONG lMachineID,
                                               LONG lCommandID, BSTR strParam, LONG lCommandTimeCode,
                                               BSTR* strError, VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE AppendItemToMDCLogDNC(LONG lDeptVelkarisID, LONG lLocationVelkarisID,
                                                  LONG lGroupVelkarisID, LONG lMachineVelkarisID,
                                                  LONG lCommandVelkarisID, BSTR strParam,
                                                  LONG lCommandTimeCode, BSTR* strError,
                                                  VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE DoNextItemFromMDCLog(BSTR* strError, VARIANT_BOOL* result) override;
  HRESULT STDMETHODCALLTYPE GetMDCLogCount(LONG* result) override;
  HRESULT STDMETHODCALLTYPE CompleteMachineDataRecord(LONG lMachineDataID) override;
  HRESULT STDMETHODCALLTYPE GetNoLock(VARIANT* result) override;

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* pctinfo) override;
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) override;
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid,
                                          DISPID* rgDispId) override;
  HRESULT STDMETHODCALLTYPE Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags,
                                   DISPPARAMS* pDispParams, VARIANT* pVarResult, EXCEPINFO* pExcepInfo,
                                   UINT* puArgErr) override;

  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) override;

  HRESULT STDMETHODCALLTYPE GetClassInfo(ITypeInfo** ppTI) override;

  HRESULT STDMETHODCALLTYPE GetServerTime(BSTR* result) override;
  HRESULT STDMETHODCALLTYPE TryStatements(LONG lIndex, BSTR* name, BSTR* strError) override;
  HRESULT STDMETHODCALLTYPE GetShiftAt(LONG lMachineID, BSTR strTime, LONG* shiftID, BSTR* from, BSTR* until,
                                       BSTR* chartDate) override;

 private:
  // Runs `work()` inside the boundary.
  template <class Work>
  HRESULT Run(Work work) noexcept;
  // The same for work whose value is the call's result; `*result` is zero when the call fails.
  template <class Result, class Work>
  HRESULT RunForResult(Result* result, Work work) noexcept;
  // The same for work that takes an error text and says whether it succeeded. The client's text is replaced
  // when the work changes it.
  template <class Work>
  HRESULT RunWithText(BSTR* text, VARIANT_BOOL* result, Work work) noexcept;

  void* FindInterface(REFIID iid) override;

  Session session_;
  std::atomic<bool> busy_ = false;
};

}  // namespace kx
