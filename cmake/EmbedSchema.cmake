# Writes OUTPUT, a source file with the text of every file named after `-P EmbedSchema.cmake`, by its name.
set(cases "")
foreach(index RANGE 4 ${CMAKE_ARGC})
  if(index EQUAL CMAKE_ARGC OR NOT DEFINED CMAKE_ARGV${index})
    break()
  endif()
  get_filename_component(name "${CMAKE_ARGV${index}}" NAME_WE)
  file(READ "${CMAKE_ARGV${index}}" text)
  string(APPEND cases "  if (name == \"${name}\") return R\"sql(${text})sql\";\n")
endforeach()
file(WRITE "${OUTPUT}" "#include \"plant/schema_sql.h\"

namespace kx::tool {

std::string_view SchemaSql(std::string_view name) {
${cases}  return {};
}

}  // namespace kx::tool
")
