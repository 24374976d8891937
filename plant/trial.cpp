#include "plant/trial.h"

#include <utility>

#include "plant/client.h"
#include "plant/platform.h"
#include "plant/trial_folder.h"

namespace kx::tool {

bool CopyPlant(const PlantOptions& options, const std::string& file) {
  Plant plant(options);
  if (plant.db.target() != SqlTarget::kSqlite) return false;
  plant.Run("vacuum into ?", {file});
  return true;
}

PlantOptions InFile(const PlantOptions& options, std::string file) {
  return {std::move(file), options.library, options.dialect, false};
}

std::optional<std::string> TrialError(const PlantOptions& options, std::int32_t row) {
  const TrialFolder folder({"copy.db"});
  const PlantOptions copy = InFile(options, folder.File("copy.db"));
  if (!CopyPlant(options, copy.plant)) return std::nullopt;
  Plant(copy).Run("delete from T_SFC_MDC_LOG where MDC_LOG_ID <> ?", {row});
  const kxdata7::Answer answer = ConnectComponent(copy).Next();
  return answer.neither() ? "the event is applied, but its row cannot be deleted" : answer.error;
}

}  // namespace kx::tool
