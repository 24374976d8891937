# Writes OUTPUT, a source file with FUNCTION, which HEADER declares: it gives the text of each of FILES by its name,
# which for a schema file is without its ending.
set(cases "")
foreach(file ${FILES})
  get_filename_component(name "${file}" NAME)
  string(REGEX REPLACE "\\.sql$" "" name "${name}")
  file(READ "${file}" text)
  string(APPEND cases "  if (name == \"${name}\") return R\"file(${text})file\";\n")
endforeach()
file(WRITE "${OUTPUT}" "#include \"${HEADER}\"

namespace kx::tool {

std::string_view ${FUNCTION}(std::string_view name) {
${cases}  return {};
}

}  // namespace kx::tool
")
