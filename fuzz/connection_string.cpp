// Connection strings: what is read can be read again, entry by entry.

#include "database/connection_string.h"

#include <algorithm>

#include "database/database_error.h"
#include "fuzz/demo_plant.h"

namespace {

using kx::ConnectionString;
using kx::fuzz::Require;
using Entry = ConnectionString::Entry;

bool Same(const Entry& a, const Entry& b) { return a.keyword == b.keyword && a.value == b.value; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  try {
    const auto parsed = ConnectionString::Parse({reinterpret_cast<const char*>(data), size});
    for (const Entry& entry : parsed.entries()) {
      const auto again = ConnectionString::Parse(entry.source);
      Require(again.entries().size() == 1 && Same(again.entries()[0], entry), "an entry stands for itself");
      Require(parsed.Find(entry.keyword) != nullptr, "an entry is found");
    }
    auto rest = parsed.entries();
    std::erase_if(rest, [](const Entry& entry) { return entry.keyword == "provider"; });
    const auto without = ConnectionString::Parse(parsed.Without("provider"));
    Require(std::ranges::equal(without.entries(), rest, Same), "the other entries stay");
  } catch (const kx::DatabaseError& error) {
    Require(!error.description().empty(), "a refusal has a reason");
  }
  return 0;
}
