# The component: libKXData7.so, its type library, and what a client needs to build against it.
include(CMakePackageConfigHelpers)

add_library(KXData7 SHARED)
add_library(KXData7::KXData7 ALIAS KXData7)
target_link_libraries(KXData7 PRIVATE kxdata7_core)
target_include_directories(KXData7 INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                             $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(KXData7 INTERFACE cxx_std_20)
set_target_properties(KXData7 PROPERTIES LINKER_LANGUAGE CXX)
if(WIN32)
  target_sources(KXData7 PRIVATE component/exports.def)
  set_target_properties(KXData7 PROPERTIES PREFIX "")
else()
  set(exports ${PROJECT_SOURCE_DIR}/component/exports.map)
  target_link_options(KXData7 PRIVATE -Wl,--version-script=${exports} -Wl,-z,defs)
  set_target_properties(KXData7 PROPERTIES LINK_DEPENDS ${exports} VERSION ${PROJECT_VERSION}
                                           SOVERSION ${PROJECT_VERSION_MAJOR})
endif()

# The type library is for Windows clients: on Windows it is a part of the library, with its version. It needs the IDL
# compiler and Wine's automation library.
find_program(WIDL NAMES widl x86_64-w64-mingw32-widl)
find_path(WIDL_INCLUDE_DIR oaidl.idl PATHS /usr/include/wine/wine/windows /usr/include/wine/windows
          NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
find_path(WIDL_LIBRARY_DIR stdole2.tlb NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH
          PATHS /usr/lib/${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu/wine/x86_64-windows
                /usr/lib/wine/x86_64-windows)
if(WIDL AND WIDL_INCLUDE_DIR AND WIDL_LIBRARY_DIR)
  set(idl ${PROJECT_SOURCE_DIR}/component/KXData7.idl)
  # The compiler notes the time of day, which is no part of a package.
  find_program(FAKETIME faketime)
  set(at_one_time "")
  if(FAKETIME)
    set(at_one_time ${CMAKE_COMMAND} -E env TZ=UTC ${FAKETIME} -f "2026-01-01 00:00:00")
  endif()
  set(type_library ${PROJECT_BINARY_DIR}/KXData7.tlb)
  add_custom_command(
    OUTPUT ${type_library}
    COMMAND ${at_one_time} ${WIDL} -m64 -I ${WIDL_INCLUDE_DIR} -L ${WIDL_LIBRARY_DIR} -t -o ${type_library} ${idl}
    DEPENDS ${idl}
    VERBATIM)
  add_custom_target(kxdata7_type_library ALL DEPENDS ${type_library})
  install(FILES ${type_library} DESTINATION ${CMAKE_INSTALL_DATADIR}/kxdata7)
elseif(WIN32)
  message(FATAL_ERROR "widl, oaidl.idl or stdole2.tlb is missing")
else()
  message(STATUS "No type library: widl, oaidl.idl or stdole2.tlb is missing")
endif()
if(WIN32)
  enable_language(RC)
  configure_file(component/KXData7.rc.in KXData7.rc @ONLY)
  set_property(SOURCE ${PROJECT_BINARY_DIR}/KXData7.rc PROPERTY OBJECT_DEPENDS ${type_library})
  target_sources(kxdata7_core PRIVATE ${PROJECT_BINARY_DIR}/KXData7.rc)
endif()

install(TARGETS KXData7 EXPORT KXData7Targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY schema DESTINATION ${CMAKE_INSTALL_DATADIR}/kxdata7 FILES_MATCHING PATTERN "*.sql"
        PATTERN "*.toml" PATTERN "*.json")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/kxdata7 PATTERN __pycache__ EXCLUDE)

# find_package(KXData7) and KXData7::KXData7
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KXData7)
configure_package_config_file(cmake/KXData7Config.cmake.in KXData7Config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(KXData7ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT KXData7Targets NAMESPACE KXData7:: DESTINATION ${package_dir})
install(FILES ${PROJECT_BINARY_DIR}/KXData7Config.cmake ${PROJECT_BINARY_DIR}/KXData7ConfigVersion.cmake
        DESTINATION ${package_dir})

# pkg-config --cflags --libs kxdata7. The paths hang on the file's own place, so that a copied tree works, too.
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/kxdata7.pc.in kxdata7.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kxdata7.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Services: one that works a plant off, one that listens to its machines, one that shows it; their user, and an
# example of their settings.
foreach(unit kxdata7@.service kxdata7-collect@.service kxdata7-board@.service)
  configure_file(packaging/${unit}.in ${unit} @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${unit} DESTINATION lib/systemd/system)
endforeach()
install(FILES packaging/kxdata7.sysusers DESTINATION lib/sysusers.d RENAME kxdata7.conf)
install(FILES packaging/kxdata7.tmpfiles DESTINATION lib/tmpfiles.d RENAME kxdata7.conf)
install(FILES packaging/plant.conf README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})

# The class, registered for all users where an installation in /usr or /usr/local is searched for it.
if(NOT WIN32)
  install(CODE "file(WRITE
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/com-classes/{6D3DC26E-FE47-4582-BD90-5E241A8DBC8B}\"
    \"ProgID=KXData7.CKXData7Obj\nLibrary=\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/$<TARGET_SONAME_FILE_NAME:KXData7>\n\")")
endif()
