#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "KXData7.h"
#include "plant/plant.h"

namespace kx::tool {

struct EventNumbers {
  std::int32_t dept, location, group, machine, command;
};

// The component, connected to a plant. What it answers with a failing HRESULT is a std::runtime_error.
class Component {
 public:
  // `connection_string` instead of the plant of `options`. A ToolError when the plant cannot be connected.
  Component(const PlantOptions& options, const std::string& connection_string);

  // Queues an event by internal ids or by DNC numbers. A ToolError when it was not queued.
  void Append(const EventNumbers& numbers, bool by_dnc, const std::string& param, std::int32_t time_code);
  // False: nothing waits, or the first event stays and `error` says why, or with an empty text it was applied
  // but stays.
  bool DoNext(std::string& error);
  std::int32_t Count();
  bool IsConnected();

  // The database's clock.
  DateTime ServerTime();
  // What the component tries on the database, and why it fails; empty: it does not.
  struct Trial {
    std::string name;
    std::string error;
  };
  // Trial `index`, counted from 0; nothing past the last.
  std::optional<Trial> Try(std::int32_t index);

 private:
  kxdata7::ComPtr<IKXData7Diagnosis> Diagnosis() const;

  kxdata7::Library library_;
  kxdata7::ComPtr<_CKXData7Obj> object_;
};

}  // namespace kx::tool
