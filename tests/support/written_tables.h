#pragma once

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "database/ascii.h"

namespace kx::test {

// A table that the component writes, without its prefix, and the columns of any table that hold its keys, its
// own key first.
struct WrittenTable {
  const char* name;
  std::array<std::string_view, 5> keys;
};
inline constexpr WrittenTable kWrittenTables[] = {
    {"MACHINE_DATA",
     {"MACHINE_DATA_ID", "JOB_DATA_START_ID", "PART_DATA_START_ID", "LOGON_DATA_START_ID",
      "OP_DATA_START_ID"}},
    {"DT_PER_MACHINE_DATA", {"DT_PER_MACHINE_DATA_ID", "DT_DATA_START_ID"}},
    {"SCRAP_PER_MACHINE_DATA", {"SCRAP_PER_MACHINE_DATA_ID", "SCRAP_DATA_START_ID"}},
    {"EVENT", {"EVENT_ID"}},
    {"MACHINE_EVENT", {"MACHINE_EVENT_ID"}},
    {"MDC_LOG", {"MDC_LOG_ID"}},
    {"MACHINE", {}},
};

// The table whose keys a column holds, null when it holds none.
inline const WrittenTable* OwnerOfKey(std::string_view column) {
  const auto owner = std::ranges::find_if(kWrittenTables, [&](const WrittenTable& table) {
    return std::ranges::any_of(table.keys, [&](auto key) { return EqualsIgnoringCase(key, column); });
  });
  return owner == std::end(kWrittenTables) ? nullptr : owner;
}

}  // namespace kx::test
