#pragma once

#include <optional>
#include <string>

#include "plant/plant.h"

namespace kx::tool {

struct ServeOptions {
  std::string listen = "127.0.0.1:8080";
  std::string name;                        // the plant's, when the plant does not hold it
  std::optional<std::int32_t> department;  // whose machines alone are on the board, by its number
  std::optional<DateTime> now;  // the moment that is shown for ever, in place of the database's clock
};

// Shows the plant to browsers until a stop is asked for: the board, reports, documents and metrics. It reads
// the plant over links of its own that cannot write. A ToolError when it cannot listen.
int Serve(const PlantOptions& plant, const ServeOptions& options);

}  // namespace kx::tool
