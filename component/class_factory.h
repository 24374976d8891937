#pragma once

#include "com/unknown.h"

namespace kx {

// Makes objects of the component's one class.
class ClassFactory final : public com::Unknown<IClassFactory> {
 public:
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) override;
  HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) override;

 private:
  void* FindInterface(REFIID iid) override;
};

}  // namespace kx
