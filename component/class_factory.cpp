#include "component/class_factory.h"

#include <exception>

#include "component/kxdata7_object.h"

namespace kx {

HRESULT ClassFactory::CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) {
  if (ppvObject == nullptr) return E_POINTER;
  *ppvObject = nullptr;
  if (pUnkOuter != nullptr) return CLASS_E_NOAGGREGATION;
  try {
    const auto object = kxdata7::ComPtr<CKXData7Obj>::Attach(new CKXData7Obj);
    return object->QueryInterface(riid, ppvObject);
  } catch (const std::exception&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT ClassFactory::LockServer(BOOL fLock) {
  fLock ? com::AddModuleUse() : com::RemoveModuleUse();
  return S_OK;
}

void* ClassFactory::FindInterface(REFIID iid) {
  return iid == IID_IUnknown || iid == IID_IClassFactory ? static_cast<IClassFactory*>(this) : nullptr;
}

}  // namespace kx
