#pragma once

#include <string>
#include <vector>

#include "inputs/mapping.h"
#include "plant/plant.h"

namespace kx::tool {

// A machine that speaks for itself, as the plant knows it.
struct InputSource {
  std::int32_t machine_id;
  std::string kind;     // "adapter" or "agent"; empty: only recordings
  std::string address;  // host:port, or a URL
  NamedValues mapping;

  friend bool operator==(const InputSource&, const InputSource&) = default;
};

std::vector<InputSource> ReadSources(Plant& plant);
// Drops those of which there are only recordings; a ToolError when no other is left.
void RequireLive(std::vector<InputSource>& sources);
// Those in rows of machine, kind, address and mapping.
std::vector<InputSource> SourcesOf(const Rows& rows);
// How the input of a machine is read; the defaults where the plant says nothing.
NamedValues MappingOf(Plant& plant, std::int32_t machine_id);

// What the reader of a machine's input knew when it stopped; "machine 3" whatever it came through.
std::string StateName(std::int32_t machine_id);
NamedValues LoadState(Plant& plant, const std::string& name);
void SaveState(Plant& plant, const std::string& name, const std::string& text);

}  // namespace kx::tool
