#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "inputs/links.h"
#include "inputs/mapping.h"
#include "inputs/source.h"

namespace kx::tool {

// A key, or a data item, that a source told something of.
struct ProbedKey {
  std::string key;
  std::string about;  // of a data item: its type and where it belongs
  std::string value;  // told last
  std::size_t count = 0;
};

// What a source tells within a time, and what would become of it.
struct Probe {
  bool opened = false;
  std::string lost;  // why it could not be heard, or not for all of the time
  std::size_t received = 0;
  std::vector<ProbedKey> keys;          // as they came first
  std::map<Item, std::string> taken;    // by the mapping as it is
  std::map<Item, std::string> guessed;  // of those that are not taken: a key whose name or values would fit
  std::vector<std::string> notices;
};

// Hears all of `sources` at the same time, for `time` or until it is enough. Nothing is written. A source
// that cannot be tried says why.
std::vector<Probe> ProbeSources(const std::vector<InputSource>& sources, std::chrono::milliseconds time,
                                const std::function<bool(const std::vector<Probe>&)>& enough = {});

// The lines of the plant's file that would make what was found the source's mapping.
std::string ProposedMapping(const InputSource& source, const Probe& probe);

// Hears every source of the plant until all have answered or failed, and two seconds more, and says of each
// in a line what it found. False when one cannot be used.
bool CheckSources(Plant& plant, std::ostream& out);

}  // namespace kx::tool
