#include "inputs/source.h"

#include "database/text.h"

namespace kx::tool {

std::vector<InputSource> ReadSources(Plant& plant) {
  return SourcesOf(
      plant.Run("select MACHINE_ID, SOURCE_KIND, SOURCE_ADDRESS, SOURCE_MAPPING from T_SFC_SOURCE order by "
                "MACHINE_ID"));
}

void RequireLive(std::vector<InputSource>& sources) {
  std::erase_if(sources, [](const InputSource& source) { return source.kind.empty(); });
  if (sources.empty()) throw ToolError("no machine has an adapter or an agent; the plant's file names them");
}

std::vector<InputSource> SourcesOf(const Rows& rows) {
  std::vector<InputSource> sources;
  for (std::size_t i = 0; i < rows.count(); ++i) {
    sources.push_back({rows.at(i, 0).ToInt32(), rows.at(i, 1).ToTextOr(""), rows.at(i, 2).ToTextOr(""),
                       ParseNamedValues(rows.at(i, 3).ToTextOr(""))});
  }
  return sources;
}

NamedValues MappingOf(Plant& plant, std::int32_t machine_id) {
  const Rows rows = plant.Run("select SOURCE_MAPPING from T_SFC_SOURCE where MACHINE_ID = ?", {machine_id});
  return rows.count() == 0 ? NamedValues() : ParseNamedValues(rows.at(0, 0).ToTextOr(""));
}

std::string StateName(std::int32_t machine_id) { return Concat("machine ", machine_id); }

NamedValues LoadState(Plant& plant, const std::string& name) {
  const Rows rows = plant.Run("select STATE_TEXT from T_SFC_SOURCE_STATE where SOURCE_NAME = ?", {name});
  return rows.count() == 0 ? NamedValues() : ParseNamedValues(rows.at(0, 0).ToTextOr(""));
}

void SaveState(Plant& plant, const std::string& name, const std::string& text) {
  if (plant.Run("update T_SFC_SOURCE_STATE set STATE_TEXT = ? where SOURCE_NAME = ?", {text, name})
          .affected == 0)
    plant.Run("insert into T_SFC_SOURCE_STATE (SOURCE_NAME, STATE_TEXT) values (?, ?)", {name, text});
}

}  // namespace kx::tool
