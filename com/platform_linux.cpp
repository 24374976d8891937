#include <dlfcn.h>

#include "com/platform.h"

namespace kx::com {

std::filesystem::path OwnFile() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&OwnFile), &info) == 0) return {};
  return std::filesystem::absolute(info.dli_fname).lexically_normal();
}

void DispatchWindowMessages() {}

bool HasTypeLibraries() { return false; }

HRESULT FindTypeInfo(REFGUID, ITypeInfo** info) noexcept {
  *info = nullptr;
  return E_NOTIMPL;
}

}  // namespace kx::com
