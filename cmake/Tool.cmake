# The command-line client kxdata7: everything but its main function is a library, which the tests link, too.
file(GLOB tool_sources CONFIGURE_DEPENDS plant/*.cpp inputs/*.cpp views/*.cpp tools/*.cpp)
list(REMOVE_ITEM tool_sources ${PROJECT_SOURCE_DIR}/tools/main.cpp)
list(FILTER tool_sources EXCLUDE REGEX ${other_system})
add_library(kxdata7_tool STATIC ${tool_sources} ${PROJECT_BINARY_DIR}/schema_sql.cpp
            ${PROJECT_BINARY_DIR}/assets.cpp)
target_include_directories(kxdata7_tool PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(kxdata7_tool PUBLIC kxdata7_database kxdata7_system)

# Files that go into the tool, so that it needs none beside it.
set(embed_files ${PROJECT_SOURCE_DIR}/cmake/EmbedFiles.cmake)
function(embed output header function)
  add_custom_command(
    OUTPUT ${PROJECT_BINARY_DIR}/${output}
    COMMAND ${CMAKE_COMMAND} -DOUTPUT=${PROJECT_BINARY_DIR}/${output} -DHEADER=${header} -DFUNCTION=${function}
            "-DFILES=${ARGN}" -P ${embed_files}
    DEPENDS ${ARGN} ${embed_files}
    VERBATIM)
endfunction()
file(GLOB schema_files CONFIGURE_DEPENDS schema/*.sql schema/*.toml)
embed(schema_sql.cpp plant/schema_sql.h SchemaSql ${schema_files})
file(GLOB assets CONFIGURE_DEPENDS views/assets/*)
embed(assets.cpp views/assets.h Asset ${assets})

# CLI11, toml++ and Boost.Beast are headers alone. Their folder on a build machine is full of that system's own, which a
# cross compiler must not see.
add_library(kxdata7_cli INTERFACE)
if(WIN32)
  # From Debian's source package: scripts/fetch-sources.
  set(KXDATA7_PUGIXML_DIR "${PROJECT_SOURCE_DIR}/build/pugixml" CACHE PATH "The folder with pugixml.cpp and pugixml.hpp")
  add_library(kxdata7_pugixml STATIC ${KXDATA7_PUGIXML_DIR}/pugixml.cpp)
  target_include_directories(kxdata7_pugixml SYSTEM PUBLIC ${KXDATA7_PUGIXML_DIR})
  target_link_libraries(kxdata7_cli INTERFACE kxdata7_pugixml)
else()
  find_package(pugixml 1.13 REQUIRED)
  target_link_libraries(kxdata7_cli INTERFACE pugixml::pugixml)
endif()
if(CMAKE_CROSSCOMPILING)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/include)
  foreach(header CLI/CLI.hpp toml++/toml.h boost/beast.hpp)
    get_filename_component(folder ${header} DIRECTORY)
    find_path(${folder}_FOLDER ${header} PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    file(CREATE_LINK ${${folder}_FOLDER}/${folder} ${PROJECT_BINARY_DIR}/include/${folder} SYMBOLIC)
  endforeach()
  target_include_directories(kxdata7_cli SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/include)
  # Sockets.
  target_link_libraries(kxdata7_cli INTERFACE ws2_32 mswsock)
  # The newer ones; windows.h would bring the older ones before.
  set(socket_sources views/server.cpp inputs/links.cpp inputs/name_lookups.cpp inputs/tcp_link.cpp inputs/adapter_link.cpp
                     inputs/agent_link.cpp inputs/probe.cpp inputs/collector.cpp
                     tools/collect_command.cpp)
  list(TRANSFORM socket_sources PREPEND ${PROJECT_SOURCE_DIR}/)
  set_property(SOURCE ${socket_sources} APPEND PROPERTY COMPILE_DEFINITIONS WIN32_LEAN_AND_MEAN NOMINMAX)
endif()

add_executable(kxdata7 tools/main.cpp)
target_link_libraries(kxdata7_tool PUBLIC kxdata7_cli)
target_link_libraries(kxdata7 PRIVATE kxdata7_tool)
target_compile_definitions(kxdata7_tool PRIVATE KXDATA7_VERSION="${PROJECT_VERSION}")
# Without the component the tool does only half of its work.
add_dependencies(kxdata7 KXData7)

# Where the tool finds the library of its own installation, from its folder, and by which name.
set(library_name $<TARGET_FILE_NAME:KXData7>)
if(NOT WIN32)
  set(library_name $<TARGET_SONAME_FILE_NAME:KXData7>)
endif()
file(RELATIVE_PATH library_folder /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_property(SOURCE ${PROJECT_SOURCE_DIR}/plant/client.cpp APPEND
             PROPERTY COMPILE_DEFINITIONS KXDATA7_LIBRARY_FOLDER="${library_folder}"
                                    KXDATA7_LIBRARY_NAME="${library_name}")

install(TARGETS kxdata7 RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

if(NOT WIN32)
  # The manual pages, written by the tool itself, and the shells' completion, which asks it.
  set(manual ${PROJECT_BINARY_DIR}/manual)
  add_custom_command(
    OUTPUT ${manual}/kxdata7.1
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${manual}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${manual}
    COMMAND kxdata7 --manual ${manual}
    VERBATIM)
  add_custom_target(kxdata7_manual ALL DEPENDS ${manual}/kxdata7.1)
  install(DIRECTORY ${manual}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES packaging/completion/kxdata7.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME kxdata7)
  install(FILES packaging/completion/_kxdata7 DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
endif()
