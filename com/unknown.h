#pragma once

#include <atomic>

#include "KXData7.h"
#include "com/module.h"

namespace kx::com {

// IUnknown for a class that implements `Interfaces`. An object is made by `new` with one reference and
// deletes itself with the last; references may be taken and released on any thread. Objects keep the library
// loaded.
template <class... Interfaces>
class Unknown : public Interfaces... {
 public:
  Unknown(const Unknown&) = delete;
  Unknown& operator=(const Unknown&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) final {
    if (ppvObject == nullptr) return E_POINTER;
    *ppvObject = FindInterface(riid);
    if (*ppvObject == nullptr) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() final { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() final {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

 protected:
  Unknown() { AddModuleUse(); }
  virtual ~Unknown() { RemoveModuleUse(); }

  // The interface pointer for `iid`, null when the class has none. Always the same one for IUnknown.
  virtual void* FindInterface(REFIID iid) = 0;

 private:
  std::atomic<ULONG> references_ = 1;
};

}  // namespace kx::com
