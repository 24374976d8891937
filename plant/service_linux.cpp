#include "plant/plant.h"
#include "plant/service.h"

namespace kx::tool {
namespace {

[[noreturn]] void Refuse(const std::string& name) {
  throw ToolError("on Linux systemd runs it: put the plant into /etc/kxdata7/" + name +
                  ".conf, then \"systemctl enable --now kxdata7@" + name +
                  "\"; \"systemctl disable --now kxdata7@" + name + "\" takes it back");
}

}  // namespace

void InstallService(const std::string& name, const std::vector<std::string>&) { Refuse(name); }

void RemoveService(const std::string& name) { Refuse(name); }

void RunService(const std::string& name, const std::function<int()>&) { Refuse(name); }

}  // namespace kx::tool
