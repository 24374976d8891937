// The functions that the library exports: exports.map lists them, on Windows exports.def.
#include <exception>
#include <new>
#include <system_error>

#include "KXData7.h"
#include "com/error_info.h"
#include "com/module.h"
#include "com/platform.h"
#include "component/class_factory.h"
#include "component/registration.h"
#include "session/host.h"

namespace {

#ifndef _WIN32
// The header defines the automation helpers inline; this makes them part of the library.
[[gnu::used]] void* const kHelpers[] = {
    reinterpret_cast<void*>(&SysAllocString), reinterpret_cast<void*>(&SysAllocStringLen),
    reinterpret_cast<void*>(&SysFreeString),  reinterpret_cast<void*>(&SysStringLen),
    reinterpret_cast<void*>(&VariantInit),    reinterpret_cast<void*>(&VariantClear),
};
#endif

// Runs a change of the registration.
template <class Change>
HRESULT Register(Change change) noexcept {
  try {
    change();
    return kx::com::Succeed();
  } catch (const std::system_error& error) {
    const bool denied = error.code() == std::errc::permission_denied ||
                        error.code() == std::errc::read_only_file_system ||
                        error.code() == std::errc::operation_not_permitted;
    return kx::com::Fail(denied ? E_ACCESSDENIED : SELFREG_E_CLASS, error.what());
  } catch (const std::exception&) {
    return kx::com::Fail(E_OUTOFMEMORY, "Out of memory");
  }
}

}  // namespace

HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (rclsid != CLSID_CKXData7Obj) return CLASS_E_CLASSNOTAVAILABLE;
  try {
    const auto factory = kxdata7::ComPtr<kx::ClassFactory>::Attach(new kx::ClassFactory);
    return factory->QueryInterface(riid, ppv);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT DllCanUnloadNow() { return kx::com::IsModuleInUse() ? S_FALSE : S_OK; }

HRESULT DllRegisterServer() {
  return Register([] { kx::WriteRegistration(kx::com::OwnFile()); });
}

HRESULT DllUnregisterServer() {
  return Register([] { kx::RemoveRegistration(); });
}

#ifndef _WIN32
void KXSetYieldHook(void (*hook)()) { kx::SetYieldHook(hook); }
#endif
