#pragma once

#include <KXData7.h>

#include <memory>
#include <span>
#include <string_view>

#include "database/engine.h"

namespace kx::fuzz {

// Ends the process unless `holds`: for the fuzzer a crash, and its input is kept.
void Require(bool holds, std::string_view promise);

// The demo plant in a temporary file, and an object of the component on it. Whatever happens to the plant is
// undone by Reset, all of it being one transaction, with the component's own inside.
class DemoPlant {
 public:
  void Reset();
  // Rows of the plant, and changes to them, past the component.
  Rows Run(std::string_view sql, std::span<const Value> parameters = {}) {
    return engine_->Execute(sql, parameters);
  }
  void Connect(LONG database_type);

 private:
  // Makes the plant, and a host that has this engine for all who connect.
  std::unique_ptr<Engine> LendEngine();

  std::unique_ptr<Engine> engine_ = LendEngine();

 public:
  kxdata7::Client component{kxdata7::Library::Linked()};  // made on that host
};

}  // namespace kx::fuzz
