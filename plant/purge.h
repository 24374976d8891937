#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "plant/plant.h"

namespace kx::tool {

// The setting with the first day whose records were never purged: before it the records have gaps.
inline constexpr std::string_view kPurgedBefore = "purged_before";

struct PurgeCount {
  std::int64_t records = 0;
  std::int64_t downtimes = 0;
  std::int64_t scrap = 0;  // rows
  std::int64_t events = 0;
  std::int64_t kept =
      0;  // records before the day that stay: inconsistent ones, and those that others refer to
};

struct PurgeOptions {
  DateTime before;  // the first chart date that stays
  bool dry_run = false;
};

// Deletes the complete records that are booked on earlier days, with their downtimes and scrap, and then the
// ended events that lie before the day and in the time of no record. A record stays that is open,
// inconsistent, a machine's current one, or one that a record that stays refers to. Piece by piece, each a
// short transaction, so that a processor works on, and after a break the next purge goes on. A dry run counts
// alone.
PurgeCount Purge(Plant& plant, const PurgeOptions& options,
                 const std::function<void(std::int64_t done, std::int64_t total)>& progress);

}  // namespace kx::tool
