#include "plant/client.h"

#include <filesystem>

#include "plant/platform.h"

namespace kx::tool {

kxdata7::Library FindLibrary(const PlantOptions& options) {
  if (!options.library.empty()) return kxdata7::Library::Load(ToPath(options.library));
  const auto folder = OwnFolder();
  for (const char* place : {"", KXDATA7_LIBRARY_FOLDER}) {
    const auto file = folder / place / KXDATA7_LIBRARY_NAME;
    if (!folder.empty() && std::filesystem::exists(file)) return kxdata7::Library::Load(file);
  }
  return kxdata7::Library::Registered();
}

kxdata7::Client ConnectComponent(const PlantOptions& options) {
  kxdata7::Client component(FindLibrary(options));
  const kxdata7::Answer connected =
      component.Connect(PlantConnectionString(options.plant), static_cast<kxdata7::Dialect>(options.dialect));
  if (!connected) throw ToolError(connected.error);
  return component;
}

DateTime ServerTime(kxdata7::Client& component) { return Value(component.ServerTime()).ToDateTime(); }

}  // namespace kx::tool
