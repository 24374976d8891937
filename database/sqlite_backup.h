#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace kx {

// Copies the SQLite database in the file `source`, as it is when this begins, into the file `target`, which
// is made or overwritten. Others read and write the source meanwhile. `progress` is told how many of the
// database's pages are copied. Raises DatabaseError; a target that is half written is found and overwritten
// by the next backup into it.
void BackUpSqlite(const std::string& source, const std::string& target,
                  const std::function<void(std::int64_t done, std::int64_t total)>& progress);

}  // namespace kx
