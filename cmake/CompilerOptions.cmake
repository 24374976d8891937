# Flags of every target of the project.
add_library(kxdata7_options INTERFACE)
target_compile_options(kxdata7_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                                                 -Wnon-virtual-dtor -Woverloaded-virtual)
if(KXDATA7_WARNINGS_AS_ERRORS)
  target_compile_options(kxdata7_options INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # When it optimises, g++ 12 finds these in what it inlined of its own std::string and std::variant.
  target_compile_options(kxdata7_options INTERFACE -Wno-restrict -Wno-stringop-overflow -Wno-maybe-uninitialized)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # A VARIANT is a union of nameless structures, as COM has it.
  target_compile_options(kxdata7_options INTERFACE -Wno-nested-anon-types)
endif()
if(WIN32)
  # COM's own interfaces have no destructors.
  target_compile_options(kxdata7_options INTERFACE -Wno-non-virtual-dtor)
endif()
if(WIN32)
  # The same bytes whenever and wherever it is built.
  target_compile_options(kxdata7_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
  target_link_options(kxdata7_options INTERFACE -Wl,--no-insert-timestamp)
endif()
if(KXDATA7_SANITIZE)
  target_compile_options(kxdata7_options INTERFACE -fsanitize=${KXDATA7_SANITIZE} -fno-omit-frame-pointer
                                                   -fno-sanitize-recover=all)
  target_link_options(kxdata7_options INTERFACE -fsanitize=${KXDATA7_SANITIZE})
  if(KXDATA7_SANITIZE STREQUAL thread)
    # Boost.Asio has fences, which the sanitizer passes over.
    target_compile_options(kxdata7_options INTERFACE -Wno-tsan)
  endif()
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()
