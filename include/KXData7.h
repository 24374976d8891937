// KXData7: machine data collection in one COM class, CKXData7Obj. This is the only header a client needs. It
// holds the interface and its ids, and includes the rest:
//
//   kxdata7/com.h     COM's binary interface on Linux; on Windows it comes from the system's headers
//   kxdata7/text.h    texts between UTF-8 and UTF-16
//   kxdata7/client.h  a C++20 client: owning types, the loaded library, and the component in C++ values
//   kxdata7/events.h  every event: its name, command type and time code
//
// The shortest client:
//
//   kxdata7::Client component(kxdata7::Library::Registered());
//   component.Connect("Provider=SQLite;Data Source=plant.db", kxdata7::Dialect::kSqlServer).OrThrow();
//   component.Append({.machine = 1, .command = 9}, "", kxdata7::time_code::kStart).OrThrow();
//   while (component.Next()) {
//   }
#ifndef KXDATA7_H_
#define KXDATA7_H_

#if (defined(_MSVC_LANG) && _MSVC_LANG < 202002L) || (!defined(_MSVC_LANG) && __cplusplus < 202002L)
#error "KXData7.h needs C++20: compile with -std=c++20 or /std:c++20"
#else

#ifdef _WIN32
#include <windows.h>
// Windows' own base header comes first.
#include <oaidl.h>
#include <ocidl.h>
#include <oleauto.h>
#include <olectl.h>
#else
#include "kxdata7/com.h"
#endif

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

// {2B4E3A6D-71D0-4C0E-9A35-6E0B8C5D2F71}
inline constexpr IID IID_IKXData7Diagnosis{
    0x2B4E3A6D, 0x71D0, 0x4C0E, {0x9A, 0x35, 0x6E, 0x0B, 0x8C, 0x5D, 0x2F, 0x71}};

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

  // The shift that a machine works at a moment when nobody is logged on: its SHIFT_ID, -1 for none; since
  // when and until when, for none from the moment on until a record without a shift would end; and the chart
  // date of the moment. Times are texts as GetServerTime has them; E_FAIL for one that is none.
  virtual HRESULT STDMETHODCALLTYPE GetShiftAt(LONG lMachineID, BSTR strTime, LONG* shiftID, BSTR* from,
                                               BSTR* until, BSTR* chartDate) = 0;

 protected:
  ~IKXData7Diagnosis() = default;
};
#include "kxdata7/client.h"
#include "kxdata7/events.h"

#endif  // C++20
#endif  // KXDATA7_H_
