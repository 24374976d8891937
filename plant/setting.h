#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "plant/plant.h"

namespace kx::tool {

// Whether a statement failed because the plant is of before the settings, or the account may not use them:
// such an account works with a plant of any version.
bool HasNoSettings(const DatabaseError& error);

// A setting of the plant as a whole; nothing when it is not there, or the plant has none for the account.
std::optional<std::string> ReadSetting(Plant& plant, std::string_view name);
void WriteSetting(Plant& plant, std::string_view name, std::string_view value);
void DeleteSetting(Plant& plant, std::string_view name);

namespace setting {

// Who works the plant off, where the guard cannot tell otherwise.
constexpr std::string_view kProcessor = "processor";
// Who listens to its machines, likewise.
constexpr std::string_view kCollector = "collector";
// ROW<TAB>TIME<TAB>ERROR of the event that keeps its processor from going on; not there while none does.
constexpr std::string_view kProcessorError = "processor_error";

}  // namespace setting
}  // namespace kx::tool
