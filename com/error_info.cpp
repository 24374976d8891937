#include "com/error_info.h"

#include <exception>
#include <string>

#include "com/unknown.h"

namespace kx::com {
namespace {

class ErrorInfo final : public Unknown<IErrorInfo> {
 public:
  explicit ErrorInfo(std::string_view description)
      : description_(kxdata7::ToOleString(description)), source_(kxdata7::ToOleString(kProgId)) {}

  HRESULT STDMETHODCALLTYPE GetGUID(GUID* pGUID) override {
    if (pGUID == nullptr) return E_POINTER;
    *pGUID = IID__CKXData7Obj;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetSource(BSTR* pBstrSource) override { return Copy(source_, pBstrSource); }
  HRESULT STDMETHODCALLTYPE GetDescription(BSTR* pBstrDescription) override {
    return Copy(description_, pBstrDescription);
  }
  HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* pBstrHelpFile) override {
    if (pBstrHelpFile == nullptr) return E_POINTER;
    *pBstrHelpFile = nullptr;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* pdwHelpContext) override {
    if (pdwHelpContext == nullptr) return E_POINTER;
    *pdwHelpContext = 0;
    return S_OK;
  }

 private:
  static HRESULT Copy(kxdata7::OleStringView text, BSTR* copy) {
    if (copy == nullptr) return E_POINTER;
    *copy = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *copy == nullptr ? E_OUTOFMEMORY : S_OK;
  }

  void* FindInterface(REFIID iid) override {
    return iid == IID_IUnknown || iid == IID_IErrorInfo ? static_cast<IErrorInfo*>(this) : nullptr;
  }

  const kxdata7::OleString description_;
  const kxdata7::OleString source_;
};

}  // namespace

HRESULT Fail(HRESULT result, std::string_view description) noexcept {
  kxdata7::ComPtr<IErrorInfo> info;
  try {
    info = kxdata7::ComPtr<IErrorInfo>::Attach(new ErrorInfo(description));
  } catch (const std::exception&) {
    // Out of memory: the result goes without its text.
  }
  SetErrorInfo(0, info.get());
  return result;
}

HRESULT Succeed() noexcept {
  SetErrorInfo(0, nullptr);
  return S_OK;
}

}  // namespace kx::com

#ifndef _WIN32

namespace {

thread_local kxdata7::ComPtr<IErrorInfo> thread_error;

}  // namespace

HRESULT SetErrorInfo(ULONG dwReserved, IErrorInfo* perrinfo) {
  if (dwReserved != 0) return E_INVALIDARG;
  if (perrinfo != nullptr) perrinfo->AddRef();
  thread_error = kxdata7::ComPtr<IErrorInfo>::Attach(perrinfo);
  return S_OK;
}

HRESULT GetErrorInfo(ULONG dwReserved, IErrorInfo** pperrinfo) {
  if (pperrinfo == nullptr) return E_POINTER;
  *pperrinfo = nullptr;
  if (dwReserved != 0) return E_INVALIDARG;
  *pperrinfo = thread_error.release();
  return *pperrinfo == nullptr ? S_FALSE : S_OK;
}

#endif
