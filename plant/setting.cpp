#include "plant/setting.h"

#include "database/database_error.h"

namespace kx::tool {

bool HasNoSettings(const DatabaseError& error) {
  return IsMissingTable(error) || error.sqlstate() == "42501";
}

std::optional<std::string> ReadSetting(Plant& plant, std::string_view name) {
  try {
    const Rows rows = plant.Run("select SETTING_VALUE from T_SFC_SETTING where SETTING_NAME = ?", {name});
    if (rows.count() == 0 || rows.at(0, 0).IsNull()) return std::nullopt;
    return rows.at(0, 0).ToText();
  } catch (const DatabaseError& error) {
    if (!HasNoSettings(error)) throw;
    return std::nullopt;
  }
}

void WriteSetting(Plant& plant, std::string_view name, std::string_view value) {
  if (plant.Run("update T_SFC_SETTING set SETTING_VALUE = ? where SETTING_NAME = ?", {value, name})
          .affected == 0)
    plant.Run("insert into T_SFC_SETTING (SETTING_NAME, SETTING_VALUE) values (?, ?)", {name, value});
}

void DeleteSetting(Plant& plant, std::string_view name) {
  plant.Run("delete from T_SFC_SETTING where SETTING_NAME = ?", {name});
}

}  // namespace kx::tool
