// The functions that the library exports: exports.map lists them.
#include <dlfcn.h>

#include <exception>
#include <filesystem>
#include <system_error>

#include "KXData7.h"
#include "com/error_info.h"
#include "component/class_factory.h"
#include "component/host.h"
#include "component/registration.h"

namespace {

// The header defines the automation helpers inline; this makes them part of the library.
[[gnu::used]] void* const kHelpers[] = {
    reinterpret_cast<void*>(&SysAllocString), reinterpret_cast<void*>(&SysAllocStringLen),
    reinterpret_cast<void*>(&SysFreeString),  reinterpret_cast<void*>(&SysStringLen),
    reinterpret_cast<void*>(&VariantInit),    reinterpret_cast<void*>(&VariantClear),
};

// The file that this code was loaded from. A name without its version stays: it outlives an update.
std::filesystem::path OwnFile() {
  Dl_info info{};
  if (dladdr(&kHelpers, &info) == 0) return {};
  return std::filesystem::absolute(info.dli_fname).lexically_normal();
}

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
  return Register([] { kx::WriteRegistration(OwnFile()); });
}

HRESULT DllUnregisterServer() {
  return Register([] { kx::RemoveRegistration(); });
}

void KXSetYieldHook(void (*hook)()) { kx::SetYieldHook(hook); }
